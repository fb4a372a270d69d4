#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "tests/support/files.h"
#include "tests/system/measure.h"
#include "tests/system/process_figures.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"
#include "trials/conversation.h"
#include "trials/faulty_server.h"

// Every call of the system that the server depends on fails, at each of its occurrences, in each of
// the ways that the system has. Whatever fails: the server lives, an answer is true, and what was
// asked for can be done once nothing fails any more.
namespace {

using faults::Call;
using faults::cut_short;
using measure::measured;
using measure::sized;

struct Kind {
    const char* name;
    Call call;
    std::vector<int> errors;
    bool ends_connections = false;
    int in_a_row = 1;
    int usual_occurrences = 1;
};

const std::vector<Kind> kinds = {
    {"write", Call::write, {ENOSPC, EIO, EDQUOT, EINTR, cut_short}},
    {"fdatasync", Call::sync, {ENOSPC, EIO, EDQUOT, EINTR}},
    {"fallocate", Call::reserve, {ENOSPC, EIO, EOPNOTSUPP}},
    {"close", Call::close, {ENOSPC, EIO, EDQUOT, EINTR}},
    {"open", Call::open, {ENOSPC, EIO, EDQUOT, EINTR, EMFILE, ENOMEM}},
    {"rename", Call::rename, {ENOSPC, EIO, EDQUOT}},
    {"unlink", Call::unlink, {EIO, ENOMEM}},
    {"utimensat", Call::set_time, {EIO, ENOSPC}},
    {"mkdir", Call::make_folder, {ENOSPC, EIO, EDQUOT}},
    {"opendir", Call::open_folder, {EMFILE, ENOMEM, EIO}},
    {"readdir", Call::read_folder, {EIO, ENOMEM}},
    // What is believed of a file decides which bytes stay, so the short form tries all of these
    // too.
    {"stat", Call::examine, {EIO, ENOMEM}, false, 1, 20},
    {"pread", Call::read, {EIO, EINTR, cut_short}},
    {"mmap", Call::map, {ENOMEM}, true},
    {"accept4", Call::accept, {EMFILE, ENOMEM, EINTR, ECONNABORTED}},
    {"epoll_wait", Call::wait, {EINTR, EIO}},
    {"epoll_ctl", Call::watch, {ENOMEM, ENOSPC}, true},
    {"recv", Call::receive, {EINTR, cut_short, ENOMEM}, true},
    {"sendmsg", Call::send, {EINTR, cut_short, ENOMEM}, true},
    {"malloc", Call::allocate, {ENOMEM}, true},
    {"malloc", Call::allocate, {ENOMEM}, true, 10},
};

class FaultTrial : public testing::Test {
  protected:
    // One fault during a conversation, or during as many as bring so many calls of its kind; then
    // another conversation, in the same folder, in which everything has to succeed.
    void try_fault(const Kind& kind, const trials::Fault& fault) {
        SCOPED_TRACE(std::string(kind.name) + " number " + std::to_string(fault.first) +
                     ", error " + std::to_string(fault.error));
        const auto may_fail = [this] {
            return faulty_.has_failed();
        };
        trials::Conversation troubled(
            server(), "round",
            {.failure = may_fail,
             .connection_end = kind.ends_connections,
             .file_facts = fault.call == Call::examine || fault.call == Call::set_time,
             .page_bytes = fault.call == Call::read});
        faulty_.order(fault);
        for (int round = 0; round < fault.first && !faulty_.has_failed(); ++round) {
            troubled.run();
        }
        cases_ += faulty_.has_failed() ? 1 : 0;
        faulty_.end_order();
        trials::Conversation(server(), "round", {}).run();
    }

    // How often a conversation without faults makes the server call.
    int count_calls(Call call) {
        faulty_.order({.call = call, .error = 0, .count = 0});
        trials::Conversation(server(), "round", {}).run();
        faulty_.end_order();
        return faulty_.calls();
    }

    support::RunningServer& server() { return faulty_.server(); }

    trials::FaultyServer faulty_;
    int cases_ = 0;
};

TEST_F(FaultTrial, NoFaultOfTheSystemEndsTheServerOrMakesAnAnswerUntrue) {
    trials::Conversation(server(), "round", {}).run();
    const int allocations = count_calls(Call::allocate);
    const std::size_t descriptors = process_figures::open_descriptors(server().pid());
    for (const Kind& kind : kinds) {
        // Memory is asked for many hundred times in a conversation: the short form tries some.
        const bool is_memory = kind.call == Call::allocate;
        const int last = is_memory ? allocations : sized(kind.usual_occurrences, 20);
        const int stride = is_memory ? sized(allocations / 20, 1) : 1;
        for (const int error : kind.errors) {
            for (int first = 1; first <= last && !HasFailure(); first += stride) {
                try_fault(
                    kind,
                    {.call = kind.call, .error = error, .first = first, .count = kind.in_a_row});
            }
        }
    }
    measured() << cases_ << " faults, a conversation asks for memory " << allocations << " times; "
               << process_figures::resident_memory(server().pid()) / measure::mebibyte
               << " MiB held afterwards\n";
    // A connection may still be closing.
    EXPECT_TRUE(
        await([&] { return process_figures::open_descriptors(server().pid()) <= descriptors; }));
    EXPECT_EQ(server().stop(), support::exited_with(0));
}

// A later sync may succeed although bytes are lost, so an upload whose sync failed goes back to its
// last checkpoint.
class SyncTrial : public testing::Test {
  protected:
    request::Upload upload(const std::string& name) const {
        return {.path = name, .size = std::ssize(bytes_), .time = 1000};
    }

    std::string path_of(const std::string& name) {
        return faulty_.server().storage_folder() + name;
    }

    // The client comes back and sends what the server lacks. Returns where it went on.
    std::int64_t complete(const std::string& name) {
        Peer peer(faulty_.server().transmit_port());
        const UploadPrepared prepared = peer.prepare(upload(name));
        if (prepared.status == message::status_file_incomplete) {
            peer.send_file_data(std::string_view(bytes_).substr(std::size_t(prepared.offset)));
            EXPECT_EQ(peer.finish_upload(), message::status_ok);
        }
        EXPECT_TRUE(support::read_file(path_of(name)) == bytes_);
        return prepared.offset;
    }

    const std::string bytes_ = support::random_bytes(3 << 20, 1);
    trials::FaultyServer faulty_{support::ServerSettings{
        .further = "<durable_upload>true</durable_upload><checkpoint_mib>1</checkpoint_mib>"}};
};

TEST_F(SyncTrial, ACheckpointThatFailsEndsTheUpload) {
    for (const int first : {1, 2}) {  // of the data, of the note
        SCOPED_TRACE(first);
        const std::string name = "n" + std::to_string(first);
        {
            Peer peer(faulty_.server().transmit_port());
            peer.prepare(upload(name));
            faulty_.order({.call = Call::sync, .error = EIO, .first = first});
            peer.send_file_data(bytes_);
            EXPECT_EQ(peer.receive<message::UploadFileData>().status, message::status_write_failed);
            faulty_.end_order();
        }
        // The checkpoint comes with the write that reaches its size, of however many blocks.
        const std::int64_t offset = complete(name);
        EXPECT_TRUE(first == 1 ? offset == 0 : offset >= 1 << 20) << offset;
    }
}

TEST_F(SyncTrial, AFinishThatCantSyncIsRefused) {
    for (const int first : {1, 2}) {  // of the file, of its folder
        SCOPED_TRACE(first);
        const std::string name = "n" + std::to_string(first);
        {
            Peer peer(faulty_.server().transmit_port());
            peer.prepare(upload(name));
            peer.send_file_data(bytes_);
            ASSERT_EQ(peer.ask(request::check_storage_id(1)), message::status_ok);
            faulty_.order({.call = Call::sync, .error = EIO, .first = first});
            EXPECT_EQ(peer.finish_upload(), message::status_rename_failed);
            faulty_.end_order();
        }
        EXPECT_EQ(stored_file::exists(path_of(name)), first == 2);
        complete(name);
    }
}

}  // namespace
