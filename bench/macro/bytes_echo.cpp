#include "macro/bytes_echo.h"

#include <unistd.h>

#include <array>
#include <map>
#include <utility>

namespace bench {

namespace {

/// The first byte says whether it wants an answer.
using Message = std::array<char, 200>;

constexpr const char* kEchoRole = "echo";

std::map<std::string, MakeEnd>& makers() {
    static std::map<std::string, MakeEnd> all;
    return all;
}

class BytesEcho : public Work {
public:
    BytesEcho(const std::string& subject, const std::string& path, bool oneWay) : mOneWay(oneWay) {
        const MakeEnd& make = makers().at(subject);
        (void)::unlink(path.c_str());
        mEcho = Process::as(kEchoRole, {subject, path});
        if (!waitFor(&mEcho, [&] { return ::access(path.c_str(), F_OK) == 0; })) {
            die("the echo does not come up");
        }
        mEnd = make(path, false);
    }
    std::vector<double> run(std::size_t n) override {
        return timedRuns(n, batch(), [this](bool last) { exchange(last); });
    }
    [[nodiscard]] std::size_t batch() const override { return mOneWay ? kRunLength : 1; }
    [[nodiscard]] std::vector<pid_t> servants() const override { return {mEcho.pid()}; }

private:
    void exchange(bool answered) {
        Message message{};
        message[0] = answered ? 1 : 0;
        if (!mEnd->send(message.data(), message.size()) ||
            (answered && !mEnd->receive(message.data(), message.size()))) {
            die("the echo does not answer");
        }
    }

    bool mOneWay;
    Process mEcho;
    std::unique_ptr<BytesEnd> mEnd;
};

/// @param arguments subject, path
const RegisterRole kRole(kEchoRole, [](const std::vector<std::string>& arguments) {
    const std::unique_ptr<BytesEnd> end = makers().at(arguments.at(0))(arguments.at(1), true);
    Message message{};
    for (;;) {
        if (end->receive(message.data(), message.size()) && message[0] != 0) {
            (void)end->send(message.data(), message.size());
        }
    }
});

}  // namespace

ExchangeRow bytesRow(const std::string& subject, MakeEnd make) {
    makers()[subject] = std::move(make);
    return {subject,
            {"message/round-trip", "message/one-way"},
            [subject](const Stage& stage, const std::string& table, std::string* /*why*/) {
                return std::make_unique<BytesEcho>(subject, stage.directory + "/echo-" + subject,
                                                   table == "message/one-way");
            }};
}

}  // namespace bench
