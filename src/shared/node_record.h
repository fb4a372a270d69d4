#pragma once

#include <cstdint>

// What a node does, as the documents of the command port tell it.
enum class NodeType : std::uint16_t { message = 0, upload = 1, download = 2 };

// The published figures of one node, copied whole by value. Texts are zero-terminated and cut to
// their field.
struct NodeRecord {
    std::uint64_t node_id = 0;
    char node_ip[16] = {};
    std::uint16_t node_port = 0;
    NodeType node_type = NodeType::message;
    double node_speed = 0;  // bytes per second
    char node_filename[1024] = {};
    std::uint64_t node_filesize = 0;
    double node_progress = 0;  // percent
    char node_user_info[1024] = {};
};
