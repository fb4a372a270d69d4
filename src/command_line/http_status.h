#pragma once

// The statuses that the command port answers with (RFC 9110, section 15), as they stand in an
// answer's first line.
namespace http_status {

inline constexpr const char* ok = "200 OK";
inline constexpr const char* bad_request = "400 Bad Request";
inline constexpr const char* forbidden = "403 Forbidden";
inline constexpr const char* not_found = "404 Not Found";
inline constexpr const char* precondition_failed = "412 Precondition Failed";

}  // namespace http_status
