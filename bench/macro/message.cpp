// Messages between two processes: bare datagrams, and ours from card to card.

#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "macro/datagram.h"
#include "mq/Envelope.h"
#include "mq/MessageQueueClientImpl.h"
#include "mq/MessageQueueServiceCallback.h"
#include "postcard/CardBuilder.h"
#include "postcard/InPostcard.h"
#include "postcard/MemoryStream.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMessageSize = 200;

double nanosecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

constexpr const char* kEchoRole = "card-echo";
constexpr const char* kEchoName = "bench-echo";
constexpr const char* kClientName = "bench-client";
constexpr const char* kPayload = "PAYLOAD";

/// A participant of the message queue as controllers are; what arrives is taken on the listening thread.
class Card : public zv_loc_fw::MessageQueueServiceCallback {
public:
    void registerAs(const char* name) {
        mName = name;
        zv_loc_fw::CardBuilder card(1, 1);
        card.addString(1, zv_loc_fw::envelope::kTo, zv_loc_fw::envelope::kHub);
        card.addString(1, zv_loc_fw::envelope::kFrom, name);
        card.addString(1, zv_loc_fw::envelope::kReq, zv_loc_fw::envelope::kRegister);
        card.finalize(1);
        if (card.result() != 0 || mTransport.send(card.card()->getEncodedBuffer()) != 0) {
            die(std::string("cannot register ") + name);
        }
    }
    void listen() { (void)mTransport.run_block(this); }
    void stop() { (void)mTransport.shutdown(); }

protected:
    /// 200 bytes all in all.
    void send(const char* to, const char* kind, int txId) {
        static const std::array<char, kMessageSize> payload{};
        constexpr std::size_t kPayloadSize = 108;
        zv_loc_fw::CardBuilder card(1, 1);
        card.addString(1, zv_loc_fw::envelope::kTo, to);
        card.addString(1, zv_loc_fw::envelope::kFrom, mName);
        card.addString(1, kind, "ECHO");
        card.addInt32(1, zv_loc_fw::envelope::kTxId, txId);
        card.addBlob(1, kPayload, payload.data(), kPayloadSize);
        card.finalize(1);
        (void)mTransport.send(card.card()->getEncodedBuffer());
    }

    struct Parsed {
        const char* from = nullptr;
        int32_t txId = 0;
    };
    /// @return whether it was one with this field; the texts lie in the stream
    static bool parse(zv_loc_fw::InMemoryStream* stream, const char* kind, Parsed* parsed) {
        const std::unique_ptr<zv_loc_fw::InPostcard> card(zv_loc_fw::InPostcard::createInstance());
        const char* text = nullptr;
        const void* payload = nullptr;
        std::size_t size = 0;
        return card->init(stream->getBuffer(), stream->getSize(), false) == 0 && card->getString(kind, &text) == 0 &&
               card->getString(zv_loc_fw::envelope::kFrom, &parsed->from) == 0 &&
               card->getInt32(zv_loc_fw::envelope::kTxId, parsed->txId) == 0 &&
               card->getBlob(kPayload, &payload, &size) == 0;
    }

private:
    const char* mName = nullptr;
    zv_loc_fw::MessageQueueClientImpl mTransport;
};

class Echo final : public Card {
public:
    int newMsg(zv_loc_fw::InMemoryStream* stream) override {
        const std::unique_ptr<zv_loc_fw::InMemoryStream> owned(stream);
        Parsed parsed;
        if (parse(stream, zv_loc_fw::envelope::kReq, &parsed) && parsed.txId != 0) {
            send(parsed.from, zv_loc_fw::envelope::kResp, parsed.txId);
        }
        return 0;
    }
};

/// Its listening thread plays: a reply's arrival sends the next message, so no second thread has a part in it.
class Cards : public Work, private Card {
public:
    explicit Cards(bool oneWay) : mOneWay(oneWay) {
        mEcho = Process::as(kEchoRole, {});
        const std::string path = std::string(zv_loc_fw::envelope::kSocketDirectory) + kEchoName;
        if (!waitFor(&mEcho, [&] { return ::access(path.c_str(), F_OK) == 0; })) {
            die("the echo does not come up");
        }
        registerAs(kClientName);
        mListener = std::thread([this] { listen(); });
    }
    ~Cards() override {
        stop();
        mListener.join();
        mEcho.stop();
        for (const char* name : {kEchoName, kClientName}) {
            (void)::unlink((std::string(zv_loc_fw::envelope::kSocketDirectory) + name).c_str());
        }
    }
    Cards(const Cards&) = delete;
    Cards& operator=(const Cards&) = delete;

    std::vector<double> run(std::size_t n) override {
        std::unique_lock lock(mMutex);
        mTook.clear();
        mWanted = n;
        begin();
        if (!mDone.wait_for(lock, std::chrono::seconds(60), [this] { return mTook.size() == mWanted; })) {
            die("the echo does not answer");
        }
        return mTook;
    }
    [[nodiscard]] std::size_t batch() const override { return mOneWay ? kRunLength : 1; }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mEcho.pid()}; }

private:
    void begin() {
        mStart = Clock::now();
        for (std::size_t i = 1; i < batch(); ++i) {
            send(kEchoName, zv_loc_fw::envelope::kReq, 0);
        }
        send(kEchoName, zv_loc_fw::envelope::kReq, 1);
    }
    int newMsg(zv_loc_fw::InMemoryStream* stream) override {
        const std::unique_ptr<zv_loc_fw::InMemoryStream> owned(stream);
        Parsed parsed;
        if (!parse(stream, zv_loc_fw::envelope::kResp, &parsed)) {
            return 0;
        }
        const std::lock_guard lock(mMutex);
        mTook.push_back(nanosecondsSince(mStart) / static_cast<double>(batch()));
        if (mTook.size() < mWanted) {
            begin();
        } else {
            mDone.notify_one();
        }
        return 0;
    }

    bool mOneWay;
    Process mEcho;
    std::thread mListener;
    std::mutex mMutex;
    std::condition_variable mDone;
    std::size_t mWanted = 0;
    std::vector<double> mTook;
    Clock::time_point mStart;
};

ExchangeRow datagramRow() {
    ExchangeRow row = bytesRow("datagram by path", [](const std::string& path, bool server) {
        return std::make_unique<DatagramEnd>(path, server, false);
    });
    row.tables.emplace_back("reply/refused");
    return row;
}

const RegisterRole kRole(kEchoRole, [](const std::vector<std::string>& /*arguments*/) {
    Echo echo;
    echo.registerAs(kEchoName);
    echo.listen();
});

const RegisterExchange kRows[] = {
    RegisterExchange(datagramRow()),
    RegisterExchange(bytesRow(
        "datagram by path, file and length looked at",
        [](const std::string& path, bool server) { return std::make_unique<DatagramEnd>(path, server, true); })),
    RegisterExchange(ExchangeRow{kAgent,
                                 {"message/round-trip", "message/one-way"},
                                 [](const Stage& /*stage*/, const std::string& table, std::string* /*why*/) {
                                     return std::make_unique<Cards>(table == "message/one-way");
                                 }}),
};

}  // namespace

}  // namespace bench
