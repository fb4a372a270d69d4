#pragma once

#include <atomic>

// What a trial and the library that it loads into a server share: a file that both have mapped.
namespace faults {

// The calls of the system that can be made to fail. Those on paths leave the log folder alone.
enum class Call : int {
    none,
    write,
    reserve,
    close,
    open,
    rename,
    unlink,
    set_time,
    sync,
    make_folder,
    open_folder,
    read_folder,
    examine,
    read,
    allocate,
    map,
    accept,
    wait,
    watch,
    receive,
    send,
};

// In place of an error: the call does its work for the first byte alone.
inline constexpr int cut_short = -1;

// Calls of one kind are counted from the moment when `call` is set, which comes last. Those from
// number `first` on, `count` of them, fail with `error`.
struct Order {
    std::atomic<Call> call{Call::none};
    std::atomic<int> first{0};
    std::atomic<int> count{1};
    std::atomic<int> error{0};
    std::atomic<int> seen{0};
    std::atomic<int> failed{0};
    // While set, calls on files below a folder of the name `hanging_folder` don't return, as on a
    // disk that hangs.
    std::atomic<bool> hangs{false};
    // Calls that hang now.
    std::atomic<int> hanging{0};
};
static_assert(std::atomic<Call>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

// A part of the path of every file whose calls can hang.
inline constexpr const char* hanging_folder = "/hanging/";

// Names the file.
inline constexpr const char* order_variable = "TRANSMIT_FAULT_ORDER";

}  // namespace faults
