#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace support {

// How a process ended: `code` if it returned or exited, else the signal that ended it.
struct ExitStatus {
    bool exited = false;
    int code = 0;
    int signal = 0;

    bool operator==(const ExitStatus&) const = default;
};

inline constexpr ExitStatus exited_with(int code) {
    return {true, code, 0};
}
inline constexpr ExitStatus ended_by(int signal) {
    return {false, 0, signal};
}

// A program that runs beside the test. Its standard input and output are connected to the test by
// pipes, and its standard error is the test's; or all three are a terminal, which the test has the
// other end of. Ended by SIGKILL when the object goes.
class ChildProcess {
  public:
    enum class Stdio { pipes, terminal };
    using Limit = std::chrono::milliseconds;
    static constexpr Limit default_limit = std::chrono::seconds(30);

    // `arguments` holds argv[0] too. An empty `folder` is the test's working directory. Throws if
    // the program can't be started.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                 const std::string& folder = "", Stdio stdio = Stdio::pipes);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }

    void write_input(std::string_view text);
    void close_input();

    // Closes the test's end of the terminal, or of both pipes.
    void hang_up();

    // Of a terminal: its columns, which the program is told of.
    void resize(unsigned short columns);

    // Waits until the text stands in what the program has printed. False if the output ends, or
    // the limit passes, before it does.
    bool await_output(std::string_view text, Limit limit = default_limit);

    // What the program has printed, as far as an await has seen it; all of it after await_exit.
    const std::string& output() const { return output_; }
    // Forgets that, so that an await looks at what comes.
    void clear_output() { output_.clear(); }

    void send_signal(int signal);

    // Waits for the end of the process and reaps it. Throws if the limit passes first.
    ExitStatus await_exit(Limit limit = default_limit);

    // Processor time of all its threads up to now, user and system.
    std::chrono::milliseconds processor_time() const;

  private:
    bool read_output(std::chrono::steady_clock::time_point deadline);

    pid_t pid_ = 0;
    int input_ = -1;
    int output_pipe_ = -1;
    bool reaped_ = false;
    ExitStatus status_;
    std::string output_;
};

// Runs a program to its end and gives what it printed on its standard output.
std::string output_of(const std::string& program, const std::vector<std::string>& arguments,
                      ChildProcess::Limit limit = ChildProcess::default_limit);

}  // namespace support
