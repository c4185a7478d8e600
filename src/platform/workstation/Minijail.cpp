#include "platform/Minijail.h"

#include <android/log.h>
#include <fcntl.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/workstation/SeccompFilter.h"
#include "platform/workstation/SeccompPolicy.h"

namespace android {

namespace {

constexpr char kTag[] = "Minijail";
constexpr size_t kMaxPolicySize = size_t{1024} * 1024;

/// @return 0, or errno
int readFile(const std::string& path, std::string& content) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return errno;
    }
    char chunk[4096];
    ssize_t got = 0;
    int error = 0;
    while ((got = read(file, chunk, sizeof(chunk))) != 0 && error == 0) {
        if (got > 0) {
            content.append(chunk, static_cast<size_t>(got));
            error = content.size() > kMaxPolicySize ? EFBIG : 0;
        } else if (errno != EINTR) {
            error = errno;
        }
    }
    close(file);
    return error;
}

bool isAbsent(int error) {
    return error == ENOENT || error == ENOTDIR;
}

[[noreturn]] void end(const std::string& reason) {
    __android_log_print(ANDROID_LOG_FATAL, kTag, "%s", reason.c_str());
    abort();
}

/// Says which system call the policy lacks and lets the signal end the process after all. Whatever call of this handler
/// the policy lacks as well ends the process just so: the handler is gone once it runs (SA_RESETHAND).
void onForbiddenCall(int signal_number, siginfo_t* info, void* /*context*/) {
    // Nothing here but what a signal handler may do.
    char line[64] = "seccomp: system call ";
    char* end_of_line = line + strlen(line);
    char reversed[16];
    size_t digits = 0;
    for (unsigned call = static_cast<unsigned>(info->si_syscall); digits == 0 || call != 0; call /= 10) {
        reversed[digits++] = static_cast<char>('0' + call % 10);
    }
    while (digits > 0) {
        *end_of_line++ = reversed[--digits];
    }
    for (const char* rest = " is not allowed\n"; *rest != '\0'; ++rest) {
        *end_of_line++ = *rest;
    }
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line, static_cast<size_t>(end_of_line - line));
    raise(signal_number);
}

void install(const std::vector<sock_filter>& filter) {
    struct sigaction action = {};
    action.sa_sigaction = onForbiddenCall;
    action.sa_flags = static_cast<int>(SA_SIGINFO | SA_RESETHAND | SA_NODEFER);
    sigemptyset(&action.sa_mask);
    sock_fprog program = {};
    program.len = static_cast<unsigned short>(filter.size());
    program.filter = const_cast<sock_filter*>(filter.data());
    if (sigaction(SIGSYS, &action, nullptr) != 0 || prctl(PR_SET_NO_NEW_PRIVS, 1L, 0L, 0L, 0L) != 0 ||
        prctl(PR_SET_SECCOMP, static_cast<long>(SECCOMP_MODE_FILTER), &program, 0L, 0L) != 0) {
        end(std::string("cannot confine this process: ") + strerror(errno));
    }
}

}  // namespace

void SetUpMinijail(const std::string& base_policy_path, const std::string& additional_policy_path) {
    std::string base;
    int error = readFile(base_policy_path, base);
    if (isAbsent(error)) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "no policy %s: this process is not confined",
                            base_policy_path.c_str());
        return;
    }
    if (error != 0) {
        end("cannot read " + base_policy_path + ": " + strerror(error));
    }
    std::string additional;
    error = additional_policy_path.empty() ? 0 : readFile(additional_policy_path, additional);
    if (error != 0 && !isAbsent(error)) {
        end("cannot read " + additional_policy_path + ": " + strerror(error));
    }

    platform::SeccompPolicy policy(
        [](const std::string& path, std::string& content) { return readFile(path, content) == 0; });
    if (!policy.parse(base_policy_path, base) || !policy.parse(additional_policy_path, additional)) {
        end(policy.error());
    }
    const std::vector<sock_filter> filter = platform::makeSeccompFilter(policy.rules());
    if (filter.empty()) {
        end("the policies are too long for the kernel");
    }
    // Before: the policy need not allow what a log line takes.
    __android_log_print(ANDROID_LOG_INFO, kTag, "confined to %zu system calls by %s", policy.rules().size(),
                        base_policy_path.c_str());
    install(filter);
}

}  // namespace android
