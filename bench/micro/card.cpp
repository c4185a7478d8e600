// The postcard, and copying its bytes as the limit.

#include <memory>
#include <vector>

#include "inet/AgentProtocol.h"
#include "micro/cards.h"
#include "mq/Envelope.h"
#include "postcard/InPostcard.h"
#include "postcard/OutPostcard.h"

namespace bench {

const unsigned char* body() {
    static const std::vector<unsigned char> kBytes(kLargeBody, 0x5A);
    return kBytes.data();
}

namespace {

namespace envelope = zv_loc_fw::envelope;
namespace protocol = zv_loc_fw::agent_protocol;

using zv_loc_fw::InPostcard;
using zv_loc_fw::OutPostcard;
using Bytes = std::vector<unsigned char>;

std::unique_ptr<OutPostcard> opened() {
    std::unique_ptr<OutPostcard> card(OutPostcard::createInstance());
    require(card != nullptr && card->init() == 0);
    return card;
}

std::unique_ptr<OutPostcard> request() {
    std::unique_ptr<OutPostcard> card = opened();
    int failed = 0;
    failed |= card->addString(envelope::kTo, kTo);
    failed |= card->addString(envelope::kFrom, kFrom);
    failed |= card->addString(envelope::kReq, kReq);
    failed |= card->addInt32(envelope::kTxId, kTxId);
    failed |= card->addString(protocol::kUrl, kUrl);
    failed |= card->addInt32(protocol::kTimeoutSec, kTimeoutSec);
    failed |= card->addBool(protocol::kForceNewConnection, kForceNew);
    failed |= card->addString(protocol::kContentType, kContentType);
    failed |= card->addString(protocol::kProtocolVersion, kVersion);
    failed |= card->addBlob(protocol::kPostData, kPostData, sizeof(kPostData));
    failed |= card->finalize();
    require(failed == 0);
    return card;
}

std::unique_ptr<OutPostcard> result(std::size_t size) {
    std::unique_ptr<OutPostcard> card = opened();
    int failed = 0;
    failed |= card->addString(envelope::kTo, kFrom);
    failed |= card->addString(envelope::kFrom, kTo);
    failed |= card->addString(envelope::kResp, kResp);
    failed |= card->addInt32(envelope::kTxId, kTxId);
    failed |= card->addBlob(protocol::kHttpRespData, body(), size);
    failed |= card->addInt32(protocol::kHttpRespCode, kStatus);
    failed |= card->addInt32(protocol::kHttpRespDataSize, static_cast<std::int32_t>(size));
    failed |= card->finalize();
    require(failed == 0);
    return card;
}

Bytes bytesOf(OutPostcard& card) {
    const auto* first = static_cast<const unsigned char*>(card.getInternalBuffer()->getBuffer());
    return {first, first + card.getInternalBuffer()->getSize()};
}

std::unique_ptr<InPostcard> readerOf(const Bytes& bytes) {
    std::unique_ptr<InPostcard> reader(InPostcard::createInstance());
    require(reader != nullptr && reader->init(bytes.data(), bytes.size(), false) == 0);
    return reader;
}

Text text(InPostcard& card, const char* name) {
    const char* value = nullptr;
    require(card.getString(name, &value) == 0);
    return {value};
}

template <typename Make>
Loop encoding(Make make) {
    return [make](std::size_t n) {
        for (; n > 0; --n) {
            keep(make()->getInternalBuffer()->getBuffer());
        }
    };
}

void readRoute(InPostcard& card, ReadRequest* read) {
    read->from = text(card, envelope::kFrom);
    read->req = text(card, envelope::kReq);
    require(card.getInt32(envelope::kTxId, read->tx_id) == 0);
}

Loop readingAll() {
    return reading([bytes = bytesOf(*request())](ReadRequest* read) {
        const std::unique_ptr<InPostcard> card = readerOf(bytes);
        read->to = text(*card, envelope::kTo);
        readRoute(*card, read);
        read->url = text(*card, protocol::kUrl);
        int failed = card->getInt32(protocol::kTimeoutSec, read->timeout_sec);
        failed |= card->getBool(protocol::kForceNewConnection, read->force_new);
        read->content_type = text(*card, protocol::kContentType);
        read->version = text(*card, protocol::kProtocolVersion);
        failed |= card->getBlob(protocol::kPostData, &read->data, &read->size);
        require(failed == 0);
        require(!read->look || read->complete());
    });
}

Loop readingRoute() {
    return reading([bytes = bytesOf(*request())](ReadRequest* read) {
        const std::unique_ptr<InPostcard> card = readerOf(bytes);
        readRoute(*card, read);
        require(!read->look || read->routed());
    });
}

Loop decodingBody(std::size_t wanted) {
    return [bytes = bytesOf(*result(wanted)), wanted](std::size_t n) {
        for (; n > 0; --n) {
            const void* data = nullptr;
            std::size_t size = 0;
            require(readerOf(bytes)->getBlob(protocol::kHttpRespData, &data, &size) == 0 && size == wanted);
            keep(data);
        }
    };
}

Loop copying(const unsigned char* bytes, std::size_t size) {
    return [bytes, copy = Bytes(size)](std::size_t n) mutable {
        for (; n > 0; --n) {
            std::memcpy(copy.data(), bytes, copy.size());
            keep(copy.data());
        }
    };
}

const Register kRows[] = {
    Register(Row{"codec/request-encode", kOurs, [] { return encoding(request); }}),
    Register(Row{"codec/request-encode", "memcpy", [] { return copying(body(), bytesOf(*request()).size()); }}),
    Register(Row{"codec/request-read-all", kOurs, readingAll}),
    Register(Row{"codec/request-read-three", kOurs, readingRoute}),
    Register(Row{"codec/result-encode", kOurs, [] { return encoding([] { return result(kSmallBody); }); }}),
    Register(Row{"codec/result-encode", "memcpy", [] { return copying(body(), bytesOf(*result(kSmallBody)).size()); }}),
    Register(Row{"codec/result-decode", kOurs, [] { return decodingBody(kSmallBody); }}),
    Register(Row{"codec/result-decode-4M", kOurs, [] { return decodingBody(kLargeBody); }}),
    Register(Row{"codec/result-encode-4M", kOurs, [] { return encoding([] { return result(kLargeBody); }); }}),
    Register(Row{"codec/result-encode-4M", "memcpy", [] { return copying(body(), kLargeBody); }}),
};

}  // namespace

}  // namespace bench
