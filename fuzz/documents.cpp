#include "src/command_line/documents.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "client/cli/server_report.h"
#include "fuzz/fuzz_target.h"
#include "src/norvane_transmit_node/user_information.h"
#include "src/shared/fixed_text.h"

namespace {

using Json = nlohmann::json;

NodeRecord random_record(FuzzedDataProvider& data) {
    NodeRecord record;
    record.node_id = data.ConsumeIntegral<std::uint64_t>();
    fill_text(record.node_ip, "192.0.2.255");
    record.node_port = data.ConsumeIntegral<std::uint16_t>();
    record.node_type = NodeType{data.ConsumeIntegralInRange<std::uint16_t>(0, 3)};
    record.node_speed = data.ConsumeFloatingPointInRange<double>(0, 1e15);
    record.node_filesize = data.ConsumeIntegral<std::uint64_t>();
    record.node_progress = data.ConsumeProbability<double>() * 100;
    fill_text(record.node_filename, data.ConsumeRandomLengthString(1500));
    fill_text(record.node_user_info, clean_user_information(data.ConsumeRandomLengthString(1500)));
    return record;
}

// The documents escape nothing but backslashes.
bool is_plain(std::string_view name) {
    return Json(std::string(name)).dump(-1, ' ', false, Json::error_handler_t::ignore) ==
           '"' + std::string(name) + '"';
}

void check_read_back(const NodeRecord& record, const std::string& document) {
    const Json read = Json::parse(document);
    require(read.size() == 9, "a node has nine members");
    require(read["node_id"] == record.node_id && read["node_port"] == record.node_port &&
                read["node_filesize"] == record.node_filesize,
            "whole numbers are read back");
    require(read["node_filename"] == record.node_filename, "a plain name is read back");
    require(read["node_user_info"] == Json::parse(record.node_user_info),
            "user information is read back");
}

}  // namespace

// Every record has a document; a parser reads it back where what the client said is JSON.
void run(std::string_view input) {
    FuzzedDataProvider data(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    std::list<NodeRecord> records;
    do {
        records.push_back(random_record(data));
        const NodeRecord& record = records.back();
        const std::string_view info = record.node_user_info;
        require(info.starts_with('{') && info.ends_with('}') &&
                    info.find('\\') == std::string_view::npos,
                "user information stands in braces");
        std::string document;
        make_node_document(record, document);
        if (is_plain(record.node_filename) && Json::accept(info)) {
            check_read_back(record, document);
        }
    } while (data.remaining_bytes() > 0);
    std::string list;
    make_transmit_list_document(records, list);
    const auto rows = transmit::cli::read_nodes(list);
    require(rows && rows->size() >= records.size(), "the client sees every node");
}
