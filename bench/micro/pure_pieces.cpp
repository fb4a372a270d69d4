// The pieces that decide without touching a socket, a disk or a clock, and the cipher.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <list>
#include <string>

#include "aes_ecb/aes_ecb.h"
#include "src/command_line/documents.h"
#include "src/message/payload_key.h"
#include "src/message/records.h"
#include "src/norvane_transmit_node/upload_blocks.h"
#include "src/norvane_transmit_node/upload_plan.h"
#include "src/norvane_transmit_service/http_scan.h"
#include "src/norvane_transmit_service/path_mapping.h"
#include "src/roster/tally.h"

namespace {

constexpr std::size_t chunk = 65536;

void convert_record(benchmark::State& state) {
    message::UploadFilePrepareRequest record{};
    while (state.KeepRunning()) {
        message::to_host_order(record);
        benchmark::DoNotOptimize(record);
    }
}
BENCHMARK(convert_record);

void clean_paths(benchmark::State& state) {
    const std::string path = "projects/2024/./drafts/../final\\report of the year.pdf";
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(clean_path(path));
    }
}
BENCHMARK(clean_paths);

void plan_uploads(benchmark::State& state) {
    FileFacts target;
    FileFacts temporary{.exists = true, .size = 10, .time = 7};
    const FileFacts announced{.size = 20, .time = 7};
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(target);
        benchmark::DoNotOptimize(temporary);
        benchmark::DoNotOptimize(plan_upload(target, temporary, announced));
    }
}
BENCHMARK(plan_uploads);

// As a whole read of the socket brings them: four messages with a chunk each.
void find_upload_blocks(benchmark::State& state) {
    message::UploadFileDataRequest header{};
    header.type = 2;
    header.data_length = chunk;
    message::to_network_order(header);
    std::string received;
    for (int block = 0; block < 4; ++block) {
        received.append(reinterpret_cast<const char*>(&header), sizeof header);
        received.append(chunk, 'x');
    }
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(received.data()), received.size());
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(UploadBlocks::in(bytes));
    }
}
BENCHMARK(find_upload_blocks);

// Requests that a browser sends, one behind the other; the argument is their number.
void scan_http(benchmark::State& state) {
    const std::string request =
        "GET /sys/transmit_list HTTP/1.1\r\nHost: localhost\r\nAccept: */*\r\n"
        "User-Agent: Mozilla/5.0 (X11; Linux x86_64)\r\n\r\n";
    std::string bytes;
    for (std::int64_t count = 0; count < state.range(0); ++count) {
        bytes += request;
    }
    while (state.KeepRunning()) {
        HttpScanner scanner(bytes);
        while (scanner.next().kind == HttpStep::Kind::request) {
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(scan_http)->Arg(1)->Arg(100);

std::list<NodeRecord> uploading_nodes(std::int64_t count) {
    NodeRecord record;
    record.node_type = NodeType::upload;
    record.node_speed = 1048576;
    record.node_progress = 42;
    record.node_filesize = 1 << 30;
    std::string("192.168.100.200").copy(record.node_ip, 15);
    std::string("/srv/storage/projects/final/report.pdf").copy(record.node_filename, 1000);
    std::string(R"({"name":"somebody"})").copy(record.node_user_info, 1000);
    std::list<NodeRecord> nodes(static_cast<std::size_t>(count), record);
    return nodes;
}

void write_transmit_list(benchmark::State& state) {
    const auto records = uploading_nodes(state.range(0));
    while (state.KeepRunning()) {
        std::string document;
        make_transmit_list_document(records, document);
        benchmark::DoNotOptimize(document);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(write_transmit_list)->Arg(10)->Arg(10'000);

void tally_nodes(benchmark::State& state) {
    const auto records = uploading_nodes(state.range(0));
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(tally(records));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(tally_nodes)->Arg(10'000);

// One message's file data there and back; the argument is its plain length.
void encipher(benchmark::State& state) {
    constexpr message::PayloadKey key = message::make_payload_key();
    const ByteArray plain(static_cast<std::size_t>(state.range(0)), 'x');
    ByteArray cipher_text;
    while (state.KeepRunning()) {
        aes_ecb_encrypt_data(key.data(), key.size(), plain.data(), plain.size(), cipher_text);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(encipher)->Arg(64)->Arg(chunk);

void decipher(benchmark::State& state) {
    constexpr message::PayloadKey key = message::make_payload_key();
    const ByteArray plain(static_cast<std::size_t>(state.range(0)), 'x');
    ByteArray cipher_text;
    aes_ecb_encrypt_data(key.data(), key.size(), plain.data(), plain.size(), cipher_text);
    ByteArray deciphered;
    while (state.KeepRunning()) {
        aes_ecb_decrypt_data(key.data(), key.size(), cipher_text.data(), cipher_text.size(),
                             deciphered);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(decipher)->Arg(64)->Arg(chunk);

}  // namespace

BENCHMARK_MAIN();
