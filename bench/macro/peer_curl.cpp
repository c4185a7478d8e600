// A process of the curl program for every request, its output through a pipe.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

#include "macro/macro.h"

namespace bench {

namespace {

class CurlProcess : public Getter {
public:
    CurlProcess(std::string program, std::string caFile) : mProgram(std::move(program)), mCaFile(std::move(caFile)) {}
    std::size_t get(const std::string& url) override {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            die("no pipe");
        }
        posix_spawn_file_actions_t actions;
        (void)::posix_spawn_file_actions_init(&actions);
        (void)::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::array<std::string, 6> words = {mProgram, "--silent", "--no-buffer", "--cacert", mCaFile, url};
        std::array<char*, 7> arguments{};
        for (std::size_t i = 0; i < words.size(); ++i) {
            arguments[i] = words[i].data();
        }
        pid_t child = -1;
        if (::posix_spawn(&child, mProgram.c_str(), &actions, nullptr, arguments.data(), environ) != 0) {
            die("curl cannot be started");
        }
        (void)::posix_spawn_file_actions_destroy(&actions);
        (void)::close(ends[1]);
        std::string body;
        for (;;) {
            const ssize_t got = ::read(ends[0], mPiece.data(), mPiece.size());
            if (got <= 0) {
                break;
            }
            body.append(mPiece.data(), static_cast<std::size_t>(got));
        }
        (void)::close(ends[0]);
        (void)::waitpid(child, nullptr, 0);
        return body.size();
    }

private:
    std::string mProgram;
    std::string mCaFile;
    std::array<char, 65536> mPiece{};
};

const RegisterExchange kRow(gettingRow("curl process", kEverywhere,
                                       [](const Stage& stage, std::string* why) -> std::unique_ptr<Getter> {
                                           const std::string program = findProgram("curl");
                                           if (program.empty()) {
                                               *why = "it is not installed";
                                               return nullptr;
                                           }
                                           return std::make_unique<CurlProcess>(program, stage.caFile);
                                       }));

}  // namespace

}  // namespace bench
