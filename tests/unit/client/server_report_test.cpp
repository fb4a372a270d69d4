#include "client/cli/server_report.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <list>
#include <random>

#include "client/cli/top_view.h"
#include "src/command_line/documents.h"
#include "src/norvane_transmit_node/user_information.h"
#include "src/shared/fixed_text.h"

namespace {

using namespace transmit::cli;

struct Fields {
    std::string name;
    std::string info = "{}";
    std::uint16_t port = 5;
    NodeType type = NodeType::upload;
    double progress = 37.5;
};

// A node of whose texts the server has cut or replaced what it does not keep.
NodeRecord node(const Fields& fields) {
    NodeRecord record;
    record.node_id = 2458713423872;
    fill_text(record.node_ip, "192.0.2.7");
    record.node_port = fields.port;
    record.node_type = fields.type;
    record.node_speed = 1.04858e+07;
    fill_text(record.node_filename, fields.name);
    record.node_filesize = 7;
    record.node_progress = fields.progress;
    fill_text(record.node_user_info, clean_user_information(fields.info));
    return record;
}

std::string text_of(const NodeRecord& record) {
    std::string text;
    make_node_document(record, text);
    return text;
}

Look look_at(const std::list<NodeRecord>& records) {
    std::string document;
    make_transmit_list_document(records, document);
    Look look;
    look.totals.time = "2024-03-05 10:22:33";
    for (const NodeRecord& record : records) {
        ++look.totals.counts[static_cast<std::size_t>(record.node_type)];
    }
    look.nodes = read_nodes(document).value();
    look.excess = excess_of(look.nodes, look.totals.counts);
    ExcessWatch().mark(look.nodes, look.excess);
    return look;
}

bool same_head(const NodeReport& row, const NodeRecord& record) {
    return row.id == record.node_id && row.address == record.node_ip &&
           row.port == record.node_port && static_cast<int>(row.kind) == int(record.node_type);
}

bool same_texts(const NodeReport& row, const NodeRecord& record) {
    return row.name == record.node_filename && row.size == record.node_filesize &&
           row.user_info == record.node_user_info;
}

TEST(ServerReport, WhatBreaksTheJsonSpoilsNoRow) {
    const std::vector<Fields> cases{
        {"a\\b"},
        {"quo\"te"},
        {"\""},
        {"\xFF\n\x1B[2J"},
        {"},{\"node_id\":"},
        {std::string(2000, '\\')},
        {"plain", R"({"u":{"v":1}})"},
        {"plain", "{{{}"},
        {"plain", R"({"cut":"of})"},
        {"plain", "{}},{}"},
    };
    std::list<NodeRecord> records;
    for (const Fields& fields : cases) {
        records.push_back(node(fields));
    }
    const Look look = look_at(records);
    ASSERT_EQ(look.nodes.size(), records.size());
    auto row = look.nodes.begin();
    for (const NodeRecord& record : records) {
        EXPECT_TRUE(same_head(*row, record) && same_texts(*row, record)) << row->name;
        EXPECT_EQ(row->speed, 1.04858e+07);
        EXPECT_EQ(row->progress, 37.5);
        EXPECT_EQ(row->doubt, Doubt::none) << row->name;
        ++row;
    }
}

TEST(ServerReport, ReadsEveryProgressThatAServerCanTell) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double progress : {infinity, -infinity, -12.5, 1e-7, 2.5e+300, std::nan("")}) {
        const Look look = look_at({node({.name = "a", .progress = progress})});
        ASSERT_EQ(look.nodes.size(), 1U) << progress;
        EXPECT_EQ(look.nodes[0].size, 7U);
        EXPECT_TRUE(look.nodes[0].progress == progress || std::isnan(progress)) << progress;
        EXPECT_NE(top_view(look, {}).find(progress > 100 && progress < infinity ? " > 100 %  "
                                          : progress > 0 && progress < 1        ? " 0.0 %  "
                                                                                : " ?  "),
                  std::string::npos)
            << top_view(look, {});
    }
}

TEST(ServerReport, AnImitatedRecordMarksAllOfItsKind) {
    const auto forged = text_of(node({.name = "", .port = 666, .type = NodeType::download}));
    const auto honest = node({.name = "honest", .type = NodeType::download});
    const auto upload = node({.name = "upload"});
    for (const Fields& hostile :
         {Fields{"x", "{}}," + forged.substr(0, forged.size() - 1)},
          Fields{R"(x","node_filesize":1,"node_progress":1,"node_user_info":{}},)" + forged + ","},
          Fields{forged}}) {
        const Look look = look_at({upload, node(hostile), honest});
        ASSERT_EQ(look.nodes.size(), 4U);
        EXPECT_EQ(look.nodes[0].doubt, Doubt::none);
        EXPECT_EQ(look.nodes[1].doubt, Doubt::texts) << "its name may end where the forgery begins";
        EXPECT_EQ(look.nodes[2].doubt, Doubt::row);
        EXPECT_EQ(look.nodes[2].port, 666);
        EXPECT_EQ(look.nodes[3].doubt, Doubt::row);
        const std::string view = top_view(look, {});
        EXPECT_NE(view.find("shows 1 download more than the server counts"), std::string::npos);
        EXPECT_NE(view.find("\n! 192.0.2.7:666 "), std::string::npos) << view;
        EXPECT_NE(view.find("\n  192.0.2.7:5 "), std::string::npos) << view;
        EXPECT_EQ(node_json(look.nodes[2])["doubt"], "row");
    }
}

TEST(ServerReport, ImitatedFiguresAreNotShown) {
    const auto hostile =
        node({.name = R"(x","node_filesize":1,"node_progress":1,"node_user_info":{)"});
    const Look look = look_at({hostile, node({.name = "honest"})});
    ASSERT_EQ(look.nodes.size(), 2U);
    EXPECT_TRUE(same_head(look.nodes[0], hostile));
    EXPECT_EQ(look.nodes[0].doubt, Doubt::texts);
    EXPECT_EQ(look.nodes[0].size, std::nullopt);
    EXPECT_EQ(look.nodes[1].doubt, Doubt::none);
    EXPECT_TRUE(node_json(look.nodes[0])["node_filesize"].is_null());
}

TEST(ServerReport, DoubtOutlastsALookThatAgrees) {
    std::vector<NodeReport> nodes(1);
    ExcessWatch watch;
    std::vector<bool> marked;
    for (const NodeCounts& excess : {NodeCounts{0}, {1}, {0}, {-1}, {0}}) {
        nodes[0].doubt = Doubt::none;
        watch.mark(nodes, excess);
        marked.push_back(nodes[0].doubt == Doubt::row);
    }
    EXPECT_EQ(marked, (std::vector<bool>{false, true, true, true, false}));
}

TEST(ServerReport, FewerRowsThanCountedAndACutListAreTold) {
    Look look = look_at({node({.name = "a"}), node({.name = "b"})});
    look.totals.counts[1] = 3;
    look.excess = excess_of(look.nodes, look.totals.counts);
    EXPECT_NE(top_view(look, {}).find("shows 1 upload fewer"), std::string::npos);
    const std::string cut = R"({"transmit_nodes":[)" + text_of(node({.name = "a"}));
    EXPECT_EQ(read_nodes(cut).value().at(0).doubt, Doubt::texts);
    EXPECT_TRUE(read_nodes(R"({"transmit_nodes":[]})").value().empty());
    EXPECT_FALSE(read_nodes(R"({"transmit_nodes":{}})"));
}

TEST(ServerReport, NothingSteersTheTerminalOrLeavesItsLine) {
    const Screen screen{.lines = 7, .columns = 80};
    const auto long_path = node({.name = "/folder/" + std::string(80, 'x') + "/a.bin"});
    EXPECT_NE(top_view(look_at({long_path}), screen).find("x/a.bin\n"), std::string::npos);
    std::list<NodeRecord> records(
        5, node({.name = "\x1B[2J\xC2\x9B\r\xE2\x80\xAE" + std::string(200, ' ') + "192.0.2.9:1"}));
    const std::string view = top_view(look_at(records), screen);
    EXPECT_EQ(view.find_first_of("\x1B\r\xC2\xE2"), std::string::npos) << view;
    EXPECT_EQ(std::count(view.begin(), view.end(), '\n'), 7);
    EXPECT_TRUE(view.ends_with("\nand 3 more\n")) << view;
    for (std::size_t start = 0; start < view.size(); start = view.find('\n', start) + 1) {
        EXPECT_LE(view.find('\n', start) - start, 80U);
    }
}

TEST(ServerReport, StatisticsAreReadWholeOrRefused) {
    std::string text;
    make_transmit_statistics_document({1, 2, 3, 1.04858e+07, 0.5, 2e+07, 7, 1'700'000'000}, text);
    const auto totals = read_statistics(text);
    ASSERT_TRUE(totals);
    EXPECT_EQ(totals->counts, (NodeCounts{1, 2, 3}));
    EXPECT_EQ(totals->upload_speed, 2e+07);
    EXPECT_EQ(totals->time.size(), 19U);
    EXPECT_EQ(statistics_json(*totals), Json::parse(text));
    for (const std::string& broken :
         {std::string(), std::string("[]"), text.substr(1), text + " ", text.substr(0, 60),
          R"({"transmit_statistics":{"message_connection_count":-1)" + text.substr(52)}) {
        EXPECT_FALSE(read_statistics(broken)) << broken;
    }
}

long greatest_memory_kib() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// A parser would build a value a hundred times the size of such a document.
TEST(ServerReport, AHostileServerCostsLinearTimeAndLittleMemory) {
    constexpr std::size_t size = 4UL << 20U;
    std::string document = R"({"transmit_nodes":[)";
    for (const std::string piece : {"[", R"({"node_id":)", R"(","node_filesize":)", "1"}) {
        while (document.size() < size) {
            document += piece;
        }
        const long before = greatest_memory_kib();
        EXPECT_TRUE(read_nodes(document).value().empty());
        EXPECT_FALSE(read_statistics(document));
        EXPECT_FALSE(read_statistics(document.substr(19)));
        EXPECT_LT(greatest_memory_kib() - before, 64 * 1024);
        document.resize(19);
    }
}

// Texts made of what can hurt: pieces of records, of their punctuation, and bytes of any kind.
class HostileClients {
  public:
    explicit HostileClients(std::uint32_t seed) : random_(seed) {}

    std::list<NodeRecord> list() {
        std::list<NodeRecord> records;
        const int count = below(6);
        for (int made = 0; made < count; ++made) {
            Fields fields{honest() ? "name" : text(), honest() ? R"({"user":"ann"})" : info()};
            fields.port = static_cast<std::uint16_t>(below(4));
            fields.type = NodeType{static_cast<std::uint16_t>(below(3))};
            fields.progress = below(5) == 0 ? std::numeric_limits<double>::infinity() : below(9);
            records.push_back(node(fields));
            earlier_ = text_of(records.back());
        }
        return records;
    }

  private:
    int below(int bound) { return static_cast<int>(random_() % static_cast<unsigned>(bound)); }
    bool honest() { return below(3) == 0; }

    std::string forged_record() {
        return text_of(node({"forged", "{}", static_cast<std::uint16_t>(below(4)),
                             NodeType{static_cast<std::uint16_t>(below(3))}}));
    }
    std::string piece() {
        switch (below(9)) {
            case 0:
                return forged_record();
            case 1: {
                const std::string record = forged_record();
                return record.substr(0, record.size() - 1);
            }
            case 2: {
                const std::string record = below(2) == 0 ? forged_record() : earlier_;
                const auto start = static_cast<std::size_t>(below(int(record.size()) + 1));
                return record.substr(start, static_cast<std::size_t>(below(200)));
            }
            case 3:
                return R"(","node_filesize":1,"node_progress":1,"node_user_info":{)";
            case 4:
                return R"({"node_id":1,"node_ip":"10.0.0.1","node_port":1,"node_type":"upload")";
            case 5:
                return std::string(1, static_cast<char>(below(255) + 1));
            default: {
                static constexpr const char* marks[] = {"\"", "{",  "}",   ",",   "]}",  "\\",
                                                        "},", "{}", "}},", "\":", "]}{", "\xE2"};
                return marks[below(12)];
            }
        }
    }
    std::string text() {
        std::string result;
        for (int pieces = below(8); pieces >= 0; --pieces) {
            result += piece();
        }
        return result;
    }
    std::string info() { return "{" + text() + "}"; }

    std::mt19937 random_;
    std::string earlier_;
};

// TRANSMIT_FORGERY_ROUNDS asks for more lists than the usual.
int forgery_rounds() {
    const char* const rounds = std::getenv("TRANSMIT_FORGERY_ROUNDS");
    return rounds ? std::atoi(rounds) : 3000;
}

// Each record of the server is there, in its order; a row that is not the server's is marked, and
// so is one whose texts aren't.
void check_rows(const Look& look, const std::list<NodeRecord>& records) {
    const bool agrees = look.excess == NodeCounts{};
    auto record = records.begin();
    for (const NodeReport& row : look.nodes) {
        const bool genuine = record != records.end() && same_head(row, *record);
        if (row.doubt == Doubt::none) {
            ASSERT_TRUE(genuine && same_texts(row, *record)) << row.name;
        } else if (row.doubt == Doubt::texts) {
            ASSERT_TRUE(genuine) << row.name;
        } else {
            ASSERT_FALSE(agrees) << row.name;
        }
        record = genuine ? std::next(record) : record;
    }
    ASSERT_EQ(record, records.end()) << "a record is missing";
}

TEST(ServerReport, NoForgeryPassesWithoutAMark) {
    HostileClients clients(20240305);
    int forged = 0;
    int ambiguous = 0;
    for (int round = 0; round < forgery_rounds(); ++round) {
        const auto records = clients.list();
        const Look look = look_at(records);
        forged += look.nodes.size() > records.size() ? 1 : 0;
        for (const NodeReport& row : look.nodes) {
            ambiguous += row.doubt == Doubt::texts ? 1 : 0;
        }
        check_rows(look, records);
        if (HasFatalFailure()) {
            FAIL() << "in round " << round;
        }
    }
    RecordProperty("lists_with_forged_rows", forged);
    RecordProperty("rows_with_texts_in_doubt", ambiguous);
    EXPECT_GT(forged, forgery_rounds() / 10);
    EXPECT_GT(ambiguous, forgery_rounds() / 10);
}

}  // namespace
