#include "src/norvane_transmit_service/http_scan.h"

#include <algorithm>

#include "kestin_base/strings.h"

namespace {

constexpr std::size_t nowhere = std::string_view::npos;

// A method word may be cut by the end of the bytes: so many of them are kept.
constexpr std::size_t longest_method = 5;

}  // namespace

std::size_t HttpScanner::Search::from(std::size_t position) {
    if (!searched_ || found_ < position) {
        found_ = bytes_.find(text_, position);
        searched_ = true;
    }
    return found_;
}

HttpStep HttpScanner::next() {
    if (consumed_ == 0 && head_end_.from(0) == nowhere) {
        return unfinished(0, 0);
    }
    const std::size_t get = get_.from(consumed_);
    const std::size_t post = post_.from(consumed_);
    const std::size_t method = std::min(get, post);
    if (method == nowhere) {
        return tail();
    }
    const std::size_t version = version_.from(consumed_);
    if (version == nowhere) {
        return unfinished(method, method - consumed_);
    }
    const std::size_t url_begin = method + (get < post ? get_ : post_).length();
    if (version <= url_begin || version >= std::max(get, post)) {
        return {HttpStep::Kind::invalid};
    }
    const std::size_t request_end = version + version_.length();
    if (head_end_.from(request_end) == nowhere) {
        return unfinished(method, 0);
    }
    const HttpStep request{HttpStep::Kind::request, request_end - consumed_,
                           url(url_begin, version)};
    consumed_ = request_end;
    return request;
}

HttpStep HttpScanner::unfinished(std::size_t head, std::size_t drop) const {
    if (bytes_.size() - head > head_limit) {
        return {HttpStep::Kind::too_long};
    }
    return {HttpStep::Kind::wait, drop};
}

// What is left holds no method word, unless one is just arriving.
HttpStep HttpScanner::tail() const {
    const std::size_t rest = bytes_.size() - consumed_;
    const bool line_ended = bytes_.back() == '\r' || bytes_.back() == '\n';
    const std::size_t kept = line_ended ? 0 : std::min(rest, longest_method);
    return {HttpStep::Kind::wait, rest - kept};
}

// Without the white space around it; of nothing but white space the last blank is left, the one
// that begins " HTTP/".
std::string_view HttpScanner::url(std::size_t begin, std::size_t end) const {
    const std::string_view text = bytes_.substr(begin, end - begin);
    const std::size_t first = text.find_first_not_of(Kestin::Base::blank_characters);
    if (first == nowhere) {
        return bytes_.substr(end, 1);
    }
    const std::size_t last = text.find_last_not_of(Kestin::Base::blank_characters);
    return text.substr(first, last - first + 1);
}
