#include "client/detail/element_reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "client/detail/utf8.h"

namespace transmit::detail {
namespace {

constexpr std::string_view space = " \t\r\n";
constexpr std::string_view ends_of_name = " \t\r\n/>=<\"'&";

bool is_space(std::string_view text) {
    return text.find_first_not_of(space) == std::string_view::npos;
}

// Characters that a document may hold, as they are or by reference.
bool is_allowed(char32_t code) {
    return code >= 0x20 ? (code < 0xD800 || code > 0xDFFF) && code != 0xFFFE && code != 0xFFFF &&
                              code <= 0x10FFFF
                        : code == '\t' || code == '\n' || code == '\r';
}

// What a reference between & and ; stands for.
std::optional<char32_t> referenced(std::string_view reference) {
    static constexpr std::array<std::pair<std::string_view, char32_t>, 5> entities{
        {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};
    for (const auto& [entity, code] : entities) {
        if (reference == entity) {
            return code;
        }
    }
    const int base = reference.starts_with("#x") ? 16 : 10;
    const auto digits =
        reference.substr(std::min<std::size_t>(base == 16 ? 2 : 1, reference.size()));
    std::uint32_t code = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, code, base);
    if (!reference.starts_with('#') || error != std::errc() || stop != end || !is_allowed(code)) {
        return std::nullopt;
    }
    return code;
}

// The value of an attribute as it is written; white space that isn't referenced is blanks.
std::optional<std::string> decoded(std::string_view written) {
    std::string value;
    while (!written.empty()) {
        const auto plain = written.substr(0, written.find('&'));
        for (const char byte : plain) {
            value += space.find(byte) == std::string_view::npos ? byte : ' ';
        }
        written.remove_prefix(plain.size());
        if (written.empty()) {
            break;
        }
        const auto end = written.find(';');
        const auto code =
            end == std::string_view::npos ? std::nullopt : referenced(written.substr(1, end - 1));
        if (!code) {
            return std::nullopt;
        }
        append_utf8(value, *code);
        written.remove_prefix(end + 1);
    }
    return value;
}

bool is_well_coded(std::string_view text) {
    while (!text.empty()) {
        const Character next = first_character(text);
        if (!next.code || !is_allowed(*next.code)) {
            return false;
        }
        text.remove_prefix(next.size);
    }
    return true;
}

}  // namespace

ElementReader::ElementReader(std::string_view document) : rest_(document) {
    take("\xEF\xBB\xBF");
    if (!is_well_coded(rest_)) {
        rest_ = "<";
    }
}

ElementReader::Step ElementReader::next() {
    at_child_ = false;
    while (!at_child_) {
        if (!skip_text()) {
            return Step::ill_formed;
        }
        if (rest_.empty()) {
            return has_root_ && open_.empty() ? Step::end : Step::ill_formed;
        }
        if (!read_markup()) {
            return Step::ill_formed;
        }
    }
    return Step::element;
}

std::optional<std::string> ElementReader::attribute(std::string_view name) const {
    const auto found = std::ranges::find(attributes_, name, &Attribute::name);
    return found == attributes_.end() ? std::nullopt : decoded(found->value);
}

bool ElementReader::read_markup() {
    if (take("<!--")) {
        return skip_past("-->");
    }
    if (take("<?")) {
        return skip_past("?>");
    }
    return take("</") ? read_end_tag() : take("<") && !rest_.starts_with('!') && read_start_tag();
}

bool ElementReader::read_start_tag() {
    name_ = take_name();
    if (name_.empty() || open_.size() == most_levels || (open_.empty() && has_root_)) {
        return false;
    }
    has_root_ = true;
    attributes_.clear();
    at_child_ = open_.size() == 1;
    for (skip_space(); !rest_.starts_with('>') && !rest_.starts_with("/>"); skip_space()) {
        if (!read_attribute()) {
            return false;
        }
    }
    if (take(">")) {
        open_.push_back(name_);
        return true;
    }
    return take("/>");
}

bool ElementReader::read_attribute() {
    const auto name = take_name();
    skip_space();
    if (name.empty() || attributes_.size() == most_attributes || !take("=")) {
        return false;
    }
    skip_space();
    const char quote = rest_.empty() ? '\0' : rest_.front();
    const auto end = quote == '"' || quote == '\'' ? rest_.find(quote, 1) : std::string_view::npos;
    if (end == std::string_view::npos) {
        return false;
    }
    attributes_.push_back({name, rest_.substr(1, end - 1)});
    rest_.remove_prefix(end + 1);
    return attributes_.back().value.find('<') == std::string_view::npos;
}

bool ElementReader::read_end_tag() {
    const auto name = take_name();
    skip_space();
    if (open_.empty() || open_.back() != name || !take(">")) {
        return false;
    }
    open_.pop_back();
    return true;
}

bool ElementReader::skip_past(std::string_view end) {
    const auto place = rest_.find(end);
    rest_.remove_prefix(place == std::string_view::npos ? rest_.size() : place + end.size());
    return place != std::string_view::npos;
}

// Text says nothing here; outside of the root it is ill-formed.
bool ElementReader::skip_text() {
    const auto text = rest_.substr(0, rest_.find('<'));
    rest_.remove_prefix(text.size());
    return !open_.empty() || is_space(text);
}

void ElementReader::skip_space() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(space), rest_.size()));
}

std::string_view ElementReader::take_name() {
    const auto name = rest_.substr(0, rest_.find_first_of(ends_of_name));
    rest_.remove_prefix(name.size());
    return name;
}

bool ElementReader::take(std::string_view text) {
    const bool found = rest_.starts_with(text);
    rest_.remove_prefix(found ? text.size() : 0);
    return found;
}

}  // namespace transmit::detail
