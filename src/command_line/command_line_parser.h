#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kestin_base/uncopy.h"
#include "src/command_line/command_line_base.h"

// The command line of a URL's text behind "/sys/": "&" and "?" become "|", white space around the
// whole goes. Nothing is percent-decoded.
void make_command_line(const char* text, std::uint64_t length, std::string& out);

// One command line, "name|option|option...": finds its command, offers it the options, and holds it
// until the answer is sent.
class CommandLineParser : private Kestin::Base::Uncopy {
  public:
    CommandLineParser();
    ~CommandLineParser();

    // Blocks are read from left to right, empty ones skipped. False: the first that is no command,
    // or no option of the command, is told by `status` and `result`.
    bool parse(const std::string& command_line);

    // False if there is no command.
    bool execute();

    // The command's own, once there is one.
    const std::string& result() const;
    std::shared_ptr<const std::string> shared_result() const;
    const std::string& status() const;

  private:
    bool parse_block(const std::string& block);
    void set_error(const std::string& text);

    std::string result_ = "{}";
    std::string status_;
    CommandLineBase* command_ = nullptr;
};
