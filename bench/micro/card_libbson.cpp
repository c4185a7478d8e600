// The same cards as BSON documents, fields found by name.

#include <bson/bson.h>

#include <string>

#include "inet/AgentProtocol.h"
#include "micro/cards.h"
#include "mq/Envelope.h"

namespace bench {

namespace {

namespace envelope = zv_loc_fw::envelope;
namespace protocol = zv_loc_fw::agent_protocol;

class Document {
public:
    Document() { bson_init(&mBson); }
    ~Document() { bson_destroy(&mBson); }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    void text(const char* name, const char* value) { require(BSON_APPEND_UTF8(&mBson, name, value)); }
    void number(const char* name, std::int32_t value) { require(BSON_APPEND_INT32(&mBson, name, value)); }
    void flag(const char* name, bool value) { require(BSON_APPEND_BOOL(&mBson, name, value)); }
    void blob(const char* name, const unsigned char* data, std::size_t size) {
        require(BSON_APPEND_BINARY(&mBson, name, BSON_SUBTYPE_BINARY, data, static_cast<std::uint32_t>(size)));
    }
    [[nodiscard]] std::string_view bytes() const {
        return {reinterpret_cast<const char*>(bson_get_data(&mBson)), mBson.len};
    }

private:
    bson_t mBson;
};

class Reader {
public:
    explicit Reader(const std::string& bytes) {
        require(bson_init_static(&mBson, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
    }
    [[nodiscard]] bson_iter_t at(const char* name) const {
        bson_iter_t field;
        require(bson_iter_init_find(&field, &mBson, name));
        return field;
    }
    [[nodiscard]] Text text(const char* name) const {
        const bson_iter_t field = at(name);
        std::uint32_t size = 0;
        const char* value = bson_iter_utf8(&field, &size);
        return {value, size};
    }
    [[nodiscard]] std::int32_t number(const char* name) const {
        const bson_iter_t field = at(name);
        return bson_iter_int32(&field);
    }
    [[nodiscard]] const void* blob(const char* name, std::size_t* size) const {
        const bson_iter_t field = at(name);
        std::uint32_t length = 0;
        const std::uint8_t* data = nullptr;
        bson_iter_binary(&field, nullptr, &length, &data);
        *size = length;
        return data;
    }

private:
    bson_t mBson;
};

void fillRequest(Document* card) {
    card->text(envelope::kTo, kTo);
    card->text(envelope::kFrom, kFrom);
    card->text(envelope::kReq, kReq);
    card->number(envelope::kTxId, kTxId);
    card->text(protocol::kUrl, kUrl);
    card->number(protocol::kTimeoutSec, kTimeoutSec);
    card->flag(protocol::kForceNewConnection, kForceNew);
    card->text(protocol::kContentType, kContentType);
    card->text(protocol::kProtocolVersion, kVersion);
    card->blob(protocol::kPostData, kPostData, sizeof(kPostData));
}

void fillResult(Document* card, std::size_t size) {
    card->text(envelope::kTo, kFrom);
    card->text(envelope::kFrom, kTo);
    card->text(envelope::kResp, kResp);
    card->number(envelope::kTxId, kTxId);
    card->blob(protocol::kHttpRespData, body(), size);
    card->number(protocol::kHttpRespCode, kStatus);
    card->number(protocol::kHttpRespDataSize, static_cast<std::int32_t>(size));
}

std::string requestBytes() {
    Document card;
    fillRequest(&card);
    return std::string(card.bytes());
}

void readRoute(const Reader& card, ReadRequest* read) {
    read->from = card.text(envelope::kFrom);
    read->req = card.text(envelope::kReq);
    read->tx_id = card.number(envelope::kTxId);
}

Loop encodingRequest() {
    return [](std::size_t n) {
        for (; n > 0; --n) {
            Document card;
            fillRequest(&card);
            keep(card.bytes().data());
        }
    };
}

Loop readingAll() {
    return reading([bytes = requestBytes()](ReadRequest* read) {
        const Reader card(bytes);
        read->to = card.text(envelope::kTo);
        readRoute(card, read);
        read->url = card.text(protocol::kUrl);
        read->timeout_sec = card.number(protocol::kTimeoutSec);
        const bson_iter_t flag = card.at(protocol::kForceNewConnection);
        read->force_new = bson_iter_bool(&flag);
        read->content_type = card.text(protocol::kContentType);
        read->version = card.text(protocol::kProtocolVersion);
        read->data = card.blob(protocol::kPostData, &read->size);
        require(!read->look || read->complete());
    });
}

Loop readingRoute() {
    return reading([bytes = requestBytes()](ReadRequest* read) {
        const Reader card(bytes);
        readRoute(card, read);
        require(!read->look || read->routed());
    });
}

Loop encodingResult(std::size_t size) {
    return [size](std::size_t n) {
        for (; n > 0; --n) {
            Document card;
            fillResult(&card, size);
            keep(card.bytes().data());
        }
    };
}

Loop decodingBody(std::size_t wanted) {
    Document written;
    fillResult(&written, wanted);
    return [bytes = std::string(written.bytes()), wanted](std::size_t n) {
        for (; n > 0; --n) {
            std::size_t size = 0;
            keep(Reader(bytes).blob(protocol::kHttpRespData, &size));
            require(size == wanted);
        }
    };
}

const Register kRows[] = {
    Register(Row{"codec/request-encode", "libbson", encodingRequest}),
    Register(Row{"codec/request-read-all", "libbson", readingAll}),
    Register(Row{"codec/request-read-three", "libbson", readingRoute}),
    Register(Row{"codec/result-encode", "libbson", [] { return encodingResult(kSmallBody); }}),
    Register(Row{"codec/result-decode", "libbson", [] { return decodingBody(kSmallBody); }}),
    Register(Row{"codec/result-decode-4M", "libbson", [] { return decodingBody(kLargeBody); }}),
    Register(Row{"codec/result-encode-4M", "libbson", [] { return encodingResult(kLargeBody); }}),
};

}  // namespace

}  // namespace bench
