#include "client/cli/target.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace transmit::cli {
namespace {

Error unusable(std::string_view text, const char* why) {
    return {ErrorKind::invalid_request, 0, std::string(text) + ": " + why};
}

template <typename Number>
std::optional<Number> number(std::string_view text) {
    Number value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

bool is_digits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](char byte) { return byte >= '0' && byte <= '9'; });
}

// An IPv6 address in brackets, with or without a port.
Result<Endpoint> parse_address(std::string_view text, Endpoint endpoint) {
    const auto end = text.find(']');
    const auto behind = end == std::string_view::npos ? "x" : text.substr(end + 1);
    endpoint.host = text.substr(1, end - 1);
    if (!behind.empty()) {
        endpoint.port =
            behind.starts_with(':') ? number<std::uint16_t>(behind.substr(1)).value_or(0) : 0;
    }
    if (endpoint.port == 0 ||
        endpoint.host.find_first_not_of("0123456789abcdefABCDEF:.") != std::string::npos) {
        return unusable(text, "an IPv6 address is written [ADDRESS][:PORT]");
    }
    return endpoint;
}

}  // namespace

Result<Endpoint> parse_endpoint(std::string_view text, const Endpoint& defaults) {
    Endpoint endpoint = defaults;
    if (text.starts_with('[')) {
        return parse_address(text, std::move(endpoint));
    }
    const auto colon = text.rfind(':');
    if (const auto host = text.substr(0, colon); !host.empty()) {
        endpoint.host = host;
    }
    if (colon != std::string_view::npos) {
        endpoint.port = number<std::uint16_t>(text.substr(colon + 1)).value_or(0);
    }
    if (text.empty() || endpoint.port == 0 || is_digits(endpoint.host) ||
        endpoint.host.find_first_of("/\\ ") != std::string::npos) {
        return unusable(text, "a server is written HOST[:PORT], with a port from 1 to 65535");
    }
    return endpoint;
}

Result<Target> parse_target(std::string_view text, const Target& defaults) {
    Target target = defaults;
    if (text.find('\\') != std::string_view::npos) {
        return unusable(text, "the server takes \\ for a separator; write / between folders");
    }
    if (text.starts_with('/')) {
        target.path.path = text;
        return target;
    }
    const auto host_end = text.find('/');
    const auto rest = host_end == std::string_view::npos ? "" : text.substr(host_end + 1);
    const auto storage_end = rest.find('/');
    const auto storage = number<std::uint32_t>(rest.substr(0, storage_end));
    const auto server = parse_endpoint(text.substr(0, host_end), defaults.server);
    if (!storage || !server) {
        return unusable(text,
                        "a path on the server begins with /; one on another server is written "
                        "HOST[:PORT]/STORAGE/path, with the storage's number");
    }
    target.server = *server;
    target.path.storage_id = *storage;
    target.path.path = storage_end == std::string_view::npos ? "/" : rest.substr(storage_end);
    return target;
}

Result<std::vector<Target>> parse_targets(const std::vector<std::string>& texts,
                                          const Target& defaults) {
    std::vector<Target> targets;
    for (const std::string& text : texts) {
        auto target = parse_target(text, defaults);
        if (!target) {
            return target.error();
        }
        if (!targets.empty() && target->server != targets.front().server) {
            return unusable(text, "this is on another server; a command works on one");
        }
        targets.push_back(*std::move(target));
    }
    return targets;
}

}  // namespace transmit::cli
