#include "src/command_line/command_line_parser.h"

#include <algorithm>

#include "kestin_base/strings.h"
#include "src/command_line/command_line_factory.h"
#include "src/command_line/http_status.h"

void make_command_line(const char* text, std::uint64_t length, std::string& out) {
    out.assign(text, length);
    std::replace(out.begin(), out.end(), '&', '|');
    std::replace(out.begin(), out.end(), '?', '|');
    Kestin::Base::kestin_string_trim(out, Kestin::Base::blank_characters);
}

CommandLineParser::CommandLineParser() : status_(http_status::bad_request) {
}

CommandLineParser::~CommandLineParser() {
    CommandLineFactory::release_command(command_);
}

bool CommandLineParser::parse(const std::string& command_line) {
    CommandLineFactory::release_command(command_);
    Kestin::Base::StringSplitter splitter(command_line, Kestin::Base::blank_characters, "|");
    for (std::string block; !splitter.eof();) {
        splitter >> block;
        if (!block.empty() && !parse_block(block)) {
            return false;
        }
    }
    if (command_ == nullptr) {
        set_error("invalid command_line (" + command_line + ")");
    }
    return command_ != nullptr;
}

// The first block names the command, all others are its options.
bool CommandLineParser::parse_block(const std::string& block) {
    if (command_ != nullptr) {
        return command_->parse_block(block);
    }
    command_ = CommandLineFactory::instance().create_command(block);
    if (command_ == nullptr) {
        set_error("invalid command_type (" + block + ")");
    }
    return command_ != nullptr;
}

bool CommandLineParser::execute() {
    return command_ != nullptr && command_->execute();
}

const std::string& CommandLineParser::result() const {
    return command_ != nullptr ? command_->result() : result_;
}

std::shared_ptr<const std::string> CommandLineParser::shared_result() const {
    return command_ != nullptr ? command_->shared_result()
                               : std::make_shared<const std::string>(result_);
}

const std::string& CommandLineParser::status() const {
    return command_ != nullptr ? command_->status() : status_;
}

void CommandLineParser::set_error(const std::string& text) {
    result_ = error_document(text);
}
