#include "src/command_line/command_line_base.h"

#include <utility>

#include "kestin_base/strings.h"
#include "src/command_line/http_status.h"

std::string error_document(const std::string& text) {
    return R"({"error":")" + text + R"("})";
}

bool split_block(const std::string& block, std::string& name, std::string& value) {
    const auto equals = block.find('=');
    name = block.substr(0, equals);
    value = equals == std::string::npos ? "" : block.substr(equals + 1);
    Kestin::Base::kestin_string_trim(name, Kestin::Base::blank_characters);
    Kestin::Base::kestin_string_trim(value, Kestin::Base::blank_characters);
    return !name.empty();
}

namespace {

std::shared_ptr<const std::string> shared(std::string document) {
    return std::make_shared<const std::string>(std::move(document));
}

const std::shared_ptr<const std::string>& empty_document() {
    static const auto document = shared({});
    return document;
}

}  // namespace

// The empty document is made now: `reset` runs in a destructor and must not need memory.
CommandLineBase::CommandLineBase()
    : result_(shared("{}")), status_(http_status::precondition_failed) {
    empty_document();
}

bool CommandLineBase::parse_block(const std::string& block) {
    std::string name;
    std::string value;
    if (!split_block(block, name, value)) {
        set_error("invalid command block: (" + block + ")");
        return false;
    }
    const auto option = options_.find(name);
    if (option == options_.end()) {
        set_error("invalid command option: (" + name + ")");
        return false;
    }
    option->second.value = value;
    return true;
}

void CommandLineBase::set_error(const std::string& text) {
    result_ = shared(error_document(text));
}

void CommandLineBase::set_result(std::shared_ptr<const std::string> document,
                                 const std::string& status) {
    result_ = std::move(document);
    status_ = status;
}

bool CommandLineBase::add_option(const std::string& name) {
    return options_.try_emplace(name, CommandLineOption{name, ""}).second;
}

const CommandLineOption* CommandLineBase::get_option(const std::string& name) const {
    const auto option = options_.find(name);
    return option == options_.end() ? nullptr : &option->second;
}

void CommandLineBase::reset() {
    for (auto& [name, option] : options_) {
        option.value.clear();
    }
    result_ = empty_document();
    status_ = http_status::precondition_failed;
}
