#include "tools/MqctlFixture.h"

#include <sys/wait.h>

#include <cstdlib>
#include <sstream>
#include <thread>

namespace test_support {

const char* mqctlPath() {
    return MQCTL_BINARY;
}

MqctlFixture::Run MqctlFixture::mqctl(const std::string& arguments, const std::string& input) const {
    const std::string in = mDirectory.file("in");
    const std::string out = mDirectory.file("out");
    const std::string err = mDirectory.file("err");
    writeFile(in, input);
    // A command that goes on by mistake ends with 124.
    const std::string command =
        std::string("timeout 60 ") + mqctlPath() + " " + arguments + " <" + in + " >" + out + " 2>" + err;
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
}

MqctlFixture::Run MqctlFixture::mqctlAnswered(const std::string& arguments,
                                              const std::function<std::vector<Card>(const Card&)>& answer) const {
    TestClient played("played");
    std::thread player([&] {
        const auto request = played.receive();
        for (const Card& reply : answer(request.value())) {
            played.send(reply);
        }
    });
    Run run = mqctl(arguments + " --to played");
    player.join();
    return run;
}

AgentProcess::Options MqctlFixture::words(const std::string& arguments) {
    AgentProcess::Options options;
    std::istringstream stream(arguments);
    for (std::string word; stream >> word;) {
        options.arguments.push_back(word);
    }
    return options;
}

}  // namespace test_support
