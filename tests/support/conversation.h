#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace support {

// What a server has to take a client's bytes for, whatever the bytes are.
struct Conversation {
    std::vector<std::uint16_t> requests;  // the types of the whole requests, in their order
    std::size_t length = 0;               // of these requests, in bytes
    bool is_broken = false;               // an unknown type follows, which ends the connection
};
Conversation read_conversation(std::string_view bytes);

// What is wrong with the answers to a conversation, or nothing: each request is answered once and
// in turn, but for blocks of an upload, which are answered only if they fail, and downloads, whose
// streams run beside the other answers and may be cut off by other requests. If the answers may
// have been cut off by the end of the connection, they needn't be `complete`.
std::string fault_of_answers(const Conversation& conversation, std::string_view answers,
                             bool complete);

}  // namespace support
