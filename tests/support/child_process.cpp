#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/files.h"

namespace support {

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
    int read_end = -1;
    int write_end = -1;
};

Pipe make_pipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    return {ends[0], ends[1]};
}

void close_descriptor(int& descriptor) {
    if (descriptor >= 0) {
        close(descriptor);
        descriptor = -1;
    }
}

// How a child's standard input and output come about.
class Redirection {
  public:
    // The program meets signals as a shell would hand them on, whatever the tests ignore or block.
    Redirection() {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
        sigset_t signals;
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        posix_spawnattr_setflags(&attributes, plain_signals);
    }
    ~Redirection() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

    void use_pipes(int input, int output) {
        posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    }

    // The terminal that the leader of a session opens first is its own.
    void use_terminal(const char* name) {
        posix_spawnattr_setflags(&attributes, plain_signals | POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, name, O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
    }

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};

  private:
    static constexpr short plain_signals = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
};

pid_t spawn(const std::string& program, const std::vector<std::string>& arguments,
            const std::string& folder, Redirection& stdio) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    if (!folder.empty()) {
        posix_spawn_file_actions_addchdir_np(&stdio.actions, folder.c_str());
    }
    pid_t pid = 0;
    const int failure =
        posix_spawn(&pid, program.c_str(), &stdio.actions, &stdio.attributes, argv.data(), environ);
    if (failure != 0) {
        throw std::system_error(failure, std::generic_category(), program);
    }
    return pid;
}

int open_terminal() {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
        throw std::system_error(errno, std::generic_category(), "terminal");
    }
    return terminal;
}

// Whether the descriptor becomes readable (or is at its end) before the deadline.
bool await_readable(int descriptor, Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd wait{descriptor, POLLIN, 0};
    return poll(&wait, 1, left > 0 ? static_cast<int>(left) : 0) > 0;
}

ExitStatus reap(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? exited_with(WEXITSTATUS(status)) : ended_by(WTERMSIG(status));
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& folder, Stdio stdio) {
    Redirection redirection;
    if (stdio == Stdio::terminal) {
        output_pipe_ = open_terminal();
        input_ = fcntl(output_pipe_, F_DUPFD_CLOEXEC, 0);
        resize(80);
        redirection.use_terminal(ptsname(output_pipe_));
        pid_ = spawn(program, arguments, folder, redirection);
        return;
    }
    Pipe input = make_pipe();
    Pipe output = make_pipe();
    input_ = input.write_end;
    output_pipe_ = output.read_end;
    redirection.use_pipes(input.read_end, output.write_end);
    pid_ = spawn(program, arguments, folder, redirection);
    close_descriptor(input.read_end);
    close_descriptor(output.write_end);
}

ChildProcess::~ChildProcess() {
    if (!reaped_) {
        kill(pid_, SIGKILL);
        reap(pid_);
    }
    close_descriptor(input_);
    close_descriptor(output_pipe_);
}

void ChildProcess::write_input(std::string_view text) {
    const ssize_t written = write(input_, text.data(), text.size());
    if (written != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the program takes no input");
    }
}

void ChildProcess::close_input() {
    close_descriptor(input_);
}

void ChildProcess::hang_up() {
    close_descriptor(input_);
    close_descriptor(output_pipe_);
}

void ChildProcess::resize(unsigned short columns) {
    const winsize size{24, columns, 0, 0};
    ioctl(output_pipe_, TIOCSWINSZ, &size);
}

bool ChildProcess::await_output(std::string_view text, Limit limit) {
    const Clock::time_point deadline = Clock::now() + limit;
    while (output_.find(text) == std::string::npos) {
        if (!read_output(deadline)) {
            return false;
        }
    }
    return true;
}

bool ChildProcess::read_output(Clock::time_point deadline) {
    if (output_pipe_ < 0 || !await_readable(output_pipe_, deadline)) {
        return false;
    }
    std::array<char, 4096> block;
    const ssize_t got = read(output_pipe_, block.data(), block.size());
    if (got <= 0) {
        return false;
    }
    output_.append(block.data(), static_cast<std::size_t>(got));
    return true;
}

void ChildProcess::send_signal(int signal) {
    if (!reaped_) {
        kill(pid_, signal);
    }
}

ExitStatus ChildProcess::await_exit(Limit limit) {
    if (reaped_) {
        return status_;
    }
    const Clock::time_point deadline = Clock::now() + limit;
    while (read_output(deadline)) {
    }
    auto process = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    const bool ended = await_readable(process, deadline);
    close_descriptor(process);
    if (!ended) {
        throw std::runtime_error("the program did not end in time");
    }
    status_ = reap(pid_);
    reaped_ = true;
    return status_;
}

std::chrono::milliseconds ChildProcess::processor_time() const {
    // proc(5): behind the name in parentheses, fields 14 and 15 of stat are user and system time
    // in clock ticks.
    const std::string stat = read_file("/proc/" + std::to_string(pid_) + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) {
        fields >> skipped;
    }
    long user = 0;
    long system = 0;
    fields >> user >> system;
    return std::chrono::milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
}

std::string output_of(const std::string& program, const std::vector<std::string>& arguments,
                      ChildProcess::Limit limit) {
    ChildProcess process(program, arguments);
    process.close_input();
    process.await_exit(limit);
    return process.output();
}

}  // namespace support
