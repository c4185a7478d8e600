// The same cards as MessagePack maps from name to value, by its C library.

#include <msgpack.h>

#include <string>

#include "inet/AgentProtocol.h"
#include "micro/cards.h"
#include "mq/Envelope.h"

namespace bench {

namespace {

namespace envelope = zv_loc_fw::envelope;
namespace protocol = zv_loc_fw::agent_protocol;

class Encoder {
public:
    explicit Encoder(std::size_t fields) {
        msgpack_sbuffer_init(&mBuffer);
        msgpack_packer_init(&mPacker, &mBuffer, msgpack_sbuffer_write);
        msgpack_pack_map(&mPacker, fields);
    }
    ~Encoder() { msgpack_sbuffer_destroy(&mBuffer); }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;

    void text(const char* name, const char* value) {
        put(name);
        put(value);
    }
    void number(const char* name, std::int32_t value) {
        put(name);
        msgpack_pack_int32(&mPacker, value);
    }
    void flag(const char* name, bool value) {
        put(name);
        value ? msgpack_pack_true(&mPacker) : msgpack_pack_false(&mPacker);
    }
    void blob(const char* name, const void* data, std::size_t size) {
        put(name);
        msgpack_pack_bin_with_body(&mPacker, data, size);
    }
    [[nodiscard]] std::string_view bytes() const { return {mBuffer.data, mBuffer.size}; }

private:
    void put(const char* value) { msgpack_pack_str_with_body(&mPacker, value, std::strlen(value)); }

    msgpack_sbuffer mBuffer;
    msgpack_packer mPacker;
};

class Decoder {
public:
    explicit Decoder(const std::string& bytes) {
        msgpack_unpacked_init(&mUnpacked);
        require(msgpack_unpack_next(&mUnpacked, bytes.data(), bytes.size(), nullptr) == MSGPACK_UNPACK_SUCCESS);
    }
    ~Decoder() { msgpack_unpacked_destroy(&mUnpacked); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    [[nodiscard]] const msgpack_object& at(std::string_view name) const {
        const msgpack_object_map& map = mUnpacked.data.via.map;
        for (std::uint32_t i = 0; i < map.size; ++i) {
            const msgpack_object_str& key = map.ptr[i].key.via.str;
            if (std::string_view(key.ptr, key.size) == name) {
                return map.ptr[i].val;
            }
        }
        std::abort();
    }
    [[nodiscard]] Text text(const char* name) const {
        const msgpack_object_str& value = at(name).via.str;
        return {value.ptr, value.size};
    }
    [[nodiscard]] std::int32_t number(const char* name) const { return static_cast<std::int32_t>(at(name).via.i64); }

private:
    msgpack_unpacked mUnpacked;
};

void fillRequest(Encoder* card) {
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

void fillResult(Encoder* card, std::size_t size) {
    card->text(envelope::kTo, kFrom);
    card->text(envelope::kFrom, kTo);
    card->text(envelope::kResp, kResp);
    card->number(envelope::kTxId, kTxId);
    card->blob(protocol::kHttpRespData, body(), size);
    card->number(protocol::kHttpRespCode, kStatus);
    card->number(protocol::kHttpRespDataSize, static_cast<std::int32_t>(size));
}

std::string requestBytes() {
    Encoder card(10);
    fillRequest(&card);
    return std::string(card.bytes());
}

void readRoute(const Decoder& card, ReadRequest* read) {
    read->from = card.text(envelope::kFrom);
    read->req = card.text(envelope::kReq);
    read->tx_id = card.number(envelope::kTxId);
}

Loop encodingRequest() {
    return [](std::size_t n) {
        for (; n > 0; --n) {
            Encoder card(10);
            fillRequest(&card);
            keep(card.bytes().data());
        }
    };
}

Loop readingAll() {
    return reading([bytes = requestBytes()](ReadRequest* read) {
        const Decoder card(bytes);
        read->to = card.text(envelope::kTo);
        readRoute(card, read);
        read->url = card.text(protocol::kUrl);
        read->timeout_sec = card.number(protocol::kTimeoutSec);
        read->force_new = card.at(protocol::kForceNewConnection).via.boolean;
        read->content_type = card.text(protocol::kContentType);
        read->version = card.text(protocol::kProtocolVersion);
        const msgpack_object_bin& data = card.at(protocol::kPostData).via.bin;
        read->data = data.ptr;
        read->size = data.size;
        require(!read->look || read->complete());
    });
}

Loop readingRoute() {
    return reading([bytes = requestBytes()](ReadRequest* read) {
        const Decoder card(bytes);
        readRoute(card, read);
        require(!read->look || read->routed());
    });
}

Loop encodingResult(std::size_t size) {
    return [size](std::size_t n) {
        for (; n > 0; --n) {
            Encoder card(7);
            fillResult(&card, size);
            keep(card.bytes().data());
        }
    };
}

Loop decodingBody(std::size_t size) {
    Encoder written(7);
    fillResult(&written, size);
    return [bytes = std::string(written.bytes()), size](std::size_t n) {
        for (; n > 0; --n) {
            const Decoder card(bytes);
            const msgpack_object_bin& data = card.at(protocol::kHttpRespData).via.bin;
            require(data.size == size);
            keep(data.ptr);
        }
    };
}

const Register kRows[] = {
    Register(Row{"codec/request-encode", "msgpack", encodingRequest}),
    Register(Row{"codec/request-read-all", "msgpack", readingAll}),
    Register(Row{"codec/request-read-three", "msgpack", readingRoute}),
    Register(Row{"codec/result-encode", "msgpack", [] { return encodingResult(kSmallBody); }}),
    Register(Row{"codec/result-decode", "msgpack", [] { return decodingBody(kSmallBody); }}),
    Register(Row{"codec/result-decode-4M", "msgpack", [] { return decodingBody(kLargeBody); }}),
    Register(Row{"codec/result-encode-4M", "msgpack", [] { return encodingResult(kLargeBody); }}),
};

}  // namespace

}  // namespace bench
