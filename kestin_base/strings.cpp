#include "kestin_base/strings.h"

#include <cstring>
#include <utility>

namespace Kestin::Base {

void kestin_string_trim(std::string& text, const char* trim_chars) {
    text.erase(text.find_last_not_of(trim_chars) + 1);
    text.erase(0, text.find_first_not_of(trim_chars));
}

StringSplitter::StringSplitter(std::string source, std::string trim_chars, std::string delimiters)
    : source_(std::move(source)),
      trim_chars_(std::move(trim_chars)),
      delimiters_(std::move(delimiters)) {
}

bool StringSplitter::eof() const {
    return next_ == std::string::npos;
}

StringSplitter& StringSplitter::operator>>(std::string& piece) {
    piece.clear();
    if (eof()) {
        return *this;
    }
    const auto end = source_.find_first_of(delimiters_, next_);
    piece = source_.substr(next_, end - next_);
    kestin_string_trim(piece, trim_chars_.c_str());
    next_ = end == std::string::npos ? end : end + 1;
    return *this;
}

std::string ansi_to_utf8(const std::string& text) {
    return text;
}

std::string kestin_error_text(int error) {
    const char* text = ::strerrordesc_np(error);
    return text != nullptr ? text : "error " + std::to_string(error);
}

}  // namespace Kestin::Base
