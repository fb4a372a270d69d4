#include "src/norvane_transmit_service/http_scan.h"

#include <cctype>
#include <vector>

#include "fuzz/fuzz_target.h"

namespace {

struct Outcome {
    std::vector<std::string_view> urls;
    HttpStep::Kind end;
};

bool is_blank(char byte) {
    return std::isspace(static_cast<unsigned char>(byte)) != 0;
}

Outcome scan(std::string_view bytes) {
    HttpScanner scanner(bytes);
    Outcome outcome;
    std::size_t dropped = 0;
    for (;;) {
        const HttpStep step = scanner.next();
        dropped += step.drop;
        require(dropped <= bytes.size(), "no more is dropped than has come");
        if (step.kind != HttpStep::Kind::request) {
            outcome.end = step.kind;
            return outcome;
        }
        require(step.drop > 0, "a request is dropped");
        require(step.url.data() >= bytes.data() &&
                    step.url.data() + step.url.size() <= bytes.data() + dropped,
                "a URL is a piece of its request");
        require(!step.url.empty() && (step.url.size() == 1 ||
                                      (!is_blank(step.url.front()) && !is_blank(step.url.back()))),
                "a URL has no white space around it");
        outcome.urls.push_back(step.url);
    }
}

}  // namespace

// The first byte says after how many of the rest a first look is taken: what it tells remains true
// of the whole.
void run(std::string_view input) {
    if (input.empty()) {
        return;
    }
    const std::size_t part = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    const Outcome early = scan(input.substr(0, part));
    const Outcome whole = scan(input);
    require(early.urls.size() <= whole.urls.size() &&
                std::equal(early.urls.begin(), early.urls.end(), whole.urls.begin()),
            "what is a request stays one when more arrives");
    require(early.end != HttpStep::Kind::invalid || whole.end == HttpStep::Kind::invalid,
            "what is invalid stays so when more arrives");
}
