// The same cards as protocol buffers: a message object filled and serialised into a string, parsed into an object.

#include <string>

#include "micro/card.pb.h"
#include "micro/cards.h"

namespace bench {

namespace {

std::string requestBytes() {
    proto::Request card;
    card.set_to(kTo);
    card.set_from(kFrom);
    card.set_req(kReq);
    card.set_tx_id(kTxId);
    card.set_url(kUrl);
    card.set_timeout_sec(kTimeoutSec);
    card.set_force_new_connection(kForceNew);
    card.set_content_type(kContentType);
    card.set_protocol_version(kVersion);
    card.set_post_data(kPostData, sizeof(kPostData));
    return card.SerializeAsString();
}

std::string resultBytes(std::size_t size) {
    proto::Result card;
    card.set_to(kFrom);
    card.set_from(kTo);
    card.set_resp(kResp);
    card.set_tx_id(kTxId);
    card.set_data(body(), size);
    card.set_code(kStatus);
    card.set_data_size(static_cast<std::int32_t>(size));
    return card.SerializeAsString();
}

template <typename Make>
Loop encoding(Make make) {
    return [make](std::size_t n) {
        for (; n > 0; --n) {
            const std::string bytes = make();
            keep(bytes.data());
        }
    };
}

Text text(const std::string& value) {
    return {value.data(), value.size()};
}

void readRoute(const proto::Request& card, ReadRequest* read) {
    read->from = text(card.from());
    read->req = text(card.req());
    read->tx_id = card.tx_id();
}

Loop readingAll() {
    return reading([bytes = requestBytes()](ReadRequest* read) {
        proto::Request card;
        require(card.ParseFromString(bytes));
        read->to = text(card.to());
        readRoute(card, read);
        read->url = text(card.url());
        read->timeout_sec = card.timeout_sec();
        read->force_new = card.force_new_connection();
        read->content_type = text(card.content_type());
        read->version = text(card.protocol_version());
        read->data = card.post_data().data();
        read->size = card.post_data().size();
        require(!read->look || read->complete());
    });
}

Loop readingRoute() {
    return reading([bytes = requestBytes()](ReadRequest* read) {
        proto::Request card;
        require(card.ParseFromString(bytes));
        readRoute(card, read);
        require(!read->look || read->routed());
    });
}

Loop decodingBody(std::size_t size) {
    return [bytes = resultBytes(size), size](std::size_t n) {
        for (; n > 0; --n) {
            proto::Result card;
            require(card.ParseFromString(bytes) && card.data().size() == size);
            keep(card.data().data());
        }
    };
}

const Register kRows[] = {
    Register(Row{"codec/request-encode", "protobuf", [] { return encoding(requestBytes); }}),
    Register(Row{"codec/request-read-all", "protobuf", readingAll}),
    Register(Row{"codec/request-read-three", "protobuf", readingRoute}),
    Register(Row{"codec/result-encode", "protobuf", [] { return encoding([] { return resultBytes(kSmallBody); }); }}),
    Register(Row{"codec/result-decode", "protobuf", [] { return decodingBody(kSmallBody); }}),
    Register(Row{"codec/result-decode-4M", "protobuf", [] { return decodingBody(kLargeBody); }}),
    Register(
        Row{"codec/result-encode-4M", "protobuf", [] { return encoding([] { return resultBytes(kLargeBody); }); }}),
};

}  // namespace

}  // namespace bench
