#pragma once

#include <chrono>
#include <cstdint>
#include <string>

// One of the four ways in which a file moves.
enum class Direction { down, up };

struct Transfer {
    Direction direction = Direction::down;
    bool encrypted = false;
    std::int64_t size = 0;  // bytes of the plain file
};

std::string name_of(const Transfer& transfer);

// The names on the server: where a download comes from and where an upload goes.
inline constexpr const char* source_name = "source";
inline constexpr const char* target_name = "target";

// What moving one file took.
struct Cost {
    std::chrono::duration<double> time{};       // as the client sees it
    std::chrono::duration<double> processor{};  // of the serving process, user and system
};
