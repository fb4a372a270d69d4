#pragma once

#include <array>
#include <cstddef>
#include <string_view>

// Where a log line comes from, read off what the compiler knows, so that it can't drift: the folder
// of the source ("src/norvane_transmit_node") and the qualified name of the function.
namespace log_place {

template <std::size_t Size>
using Text = std::array<char, Size>;

template <std::size_t Size>
consteval Text<Size> copy_text(std::string_view text) {
    Text<Size> copy{};
    for (std::size_t index = 0; index < text.size(); ++index) {
        copy[index] = text[index];
    }
    return copy;
}

template <std::size_t Size>
consteval Text<Size> folder_of(const char (&source)[Size]) {
    const std::string_view path{source, Size - 1};
    const std::size_t begin = path.rfind("src/");
    const std::size_t end = path.rfind('/');
    return copy_text<Size>(path.substr(begin == std::string_view::npos ? 0 : begin, end - begin));
}

// "NorvaneTransmitNode::on_recv_data" of "bool NorvaneTransmitNode::on_recv_data(Connection*)".
// Names of functions without a name of their own (in an unnamed namespace) begin behind it.
template <std::size_t Size>
consteval Text<Size> name_of(const char (&pretty)[Size]) {
    std::string_view name{pretty, Size - 1};
    for (const std::string_view unnamed : {"{anonymous}::", "(anonymous namespace)::"}) {
        if (const std::size_t at = name.find(unnamed); at != std::string_view::npos) {
            name.remove_prefix(at + unnamed.size());
        }
    }
    name = name.substr(0, name.find('('));
    if (const std::size_t blank = name.find_last_of(" *&"); blank != std::string_view::npos) {
        name.remove_prefix(blank + 1);
    }
    return copy_text<Size>(name);
}

// The text of one place, kept for the life of the process.
template <auto value>
inline constexpr auto kept = value;

}  // namespace log_place

// The three arguments file, function and line of kestin_run_log and kestin_debug_log.
#define LOG_PLACE                                           \
    log_place::kept<log_place::folder_of(__FILE__)>.data(), \
        log_place::kept<log_place::name_of(__PRETTY_FUNCTION__)>.data(), __LINE__
