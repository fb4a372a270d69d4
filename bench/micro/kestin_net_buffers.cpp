// What each byte of a transfer passes through between the socket and the service.

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <string>

#include "kestin_net/detail/memory_account.h"
#include "kestin_net/detail/receive_buffer.h"
#include "kestin_net/detail/send_chain.h"

namespace {

using namespace Kestin::Net::detail;

constexpr std::uint64_t memory_limit = 1024 * mebibyte;
constexpr std::size_t header_size = 8;

// A message's header and data in, as a download does it, and out again when a write's worth waits.
void fill_and_drain_send_chain(benchmark::State& state) {
    BufferMemory memory(memory_limit);
    MemoryAccount account(memory.budget);
    SendChain chain(memory, account);
    const std::string data(static_cast<std::size_t>(state.range(0)), 'x');
    std::array<iovec, 16> slots;
    while (state.KeepRunning()) {
        chain.append("a header", header_size);
        chain.append(data.data(), data.size());
        if (chain.size() >= send_mark) {
            benchmark::DoNotOptimize(chain.front(slots));
            chain.drop_front(chain.size());
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(fill_and_drain_send_chain)->Arg(64)->Arg(64 * kibibyte);

// A read's worth in and out in frames of that size, as an upload does it; the bytes stay unwritten.
void take_frames_from_receive_buffer(benchmark::State& state) {
    BufferMemory memory(memory_limit);
    MemoryAccount account(memory.budget);
    ReceiveBuffer buffer(memory, account);
    const auto frame = static_cast<std::uint64_t>(state.range(0));
    while (state.KeepRunning()) {
        buffer.commit(buffer.room().size());
        while (benchmark::DoNotOptimize(buffer.front(frame)), buffer.size() >= frame) {
            buffer.drop(frame);
        }
        buffer.settle();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(read_size));
}
BENCHMARK(take_frames_from_receive_buffer)->Arg(64)->Arg(64 * kibibyte);

// The first bytes of a connection that was idle, and the memory given back behind them.
void wake_and_settle_receive_buffer(benchmark::State& state) {
    BufferMemory memory(memory_limit);
    MemoryAccount account(memory.budget);
    ReceiveBuffer buffer(memory, account);
    while (state.KeepRunning()) {
        std::memset(buffer.room().data(), 'x', header_size);
        buffer.commit(header_size);
        buffer.drop(header_size);
        buffer.settle();
    }
}
BENCHMARK(wake_and_settle_receive_buffer);

}  // namespace
