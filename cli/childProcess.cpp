#include "cli/childProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "cli/interrupt.h"

namespace cli {
namespace {

std::pair<Descriptor, Descriptor> makePipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw fileFailure("start another process", errno, "too many open files?");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

[[noreturn]] void become(const std::vector<std::string>& arguments, const Descriptor& output,
                         const Descriptor& errors) {
    std::vector<char*> argv;
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(output.get(), STDOUT_FILENO);
    dup2(errors.get(), STDERR_FILENO);
    execv("/proc/self/exe", argv.data());
    _exit(EXIT_FAILURE);
}

/// One stream of one child.
struct Stream {
    std::size_t child;
    bool isError;
    std::string rest;
};

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    auto output = makePipe();
    auto errors = makePipe();
    process_ = fork();
    if (process_ == 0) become(arguments, output.second, errors.second);
    if (process_ < 0) throw fileFailure("start another process", errno, "too many processes?");
    output_ = std::move(output.first);
    errors_ = std::move(errors.first);
}

ChildProcess::~ChildProcess() {
    askToStop();
    wait();
}

void ChildProcess::askToStop() const {
    if (process_ > 0) kill(process_, SIGTERM);
}

int ChildProcess::wait() {
    if (process_ <= 0) return -1;
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void readAll(const std::vector<ChildProcess*>& children,
             const std::function<void(std::size_t child, bool isError, const std::string& line)>& take) {
    std::vector<pollfd> polled;
    std::vector<Stream> streams;
    for (std::size_t i = 0; i < children.size(); ++i) {
        polled.push_back({children[i]->output().get(), POLLIN, 0});
        streams.push_back({i, false, ""});
        polled.push_back({children[i]->errors().get(), POLLIN, 0});
        streams.push_back({i, true, ""});
    }
    bool stopAsked = false;
    for (std::size_t open = polled.size(); open > 0;) {
        poll(polled.data(), polled.size(), -1);
        if (isInterruptNoted() && !std::exchange(stopAsked, true)) {
            for (const ChildProcess* child : children) child->askToStop();
        }
        for (std::size_t i = 0; i < polled.size(); ++i) {
            if (polled[i].fd < 0 || polled[i].revents == 0) continue;
            char piece[8192];
            const ssize_t count = read(polled[i].fd, piece, sizeof piece);
            if (count < 0 && errno == EINTR) continue;
            std::string& rest = streams[i].rest;
            if (count > 0) rest.append(piece, static_cast<std::size_t>(count));
            for (auto feed = rest.find('\n'); feed != std::string::npos; feed = rest.find('\n')) {
                take(streams[i].child, streams[i].isError, rest.substr(0, feed));
                rest.erase(0, feed + 1);
            }
            if (count > 0) continue;
            polled[i].fd = -1;  // poll passes over it
            --open;
        }
    }
}

}  // namespace cli
