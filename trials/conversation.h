#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

#include "tests/support/running_server.h"
#include "tests/system/peer.h"

namespace trials {

// A client's round through all that the server does with files, in a folder of its own. Each
// answer is held against what then stands on the disk: whatever fails, a success is true.
class Conversation {
  public:
    // What the round may meet. While nothing is excused every request has to succeed.
    struct Excuses {
        // A request may fail with one of the statuses that it has for failures.
        std::function<bool()> failure = [] {
            return false;
        };
        // The connection may end.
        bool connection_end = false;
        // What the system says of a file, or sets of it, may be wrong.
        bool file_facts = false;
        // What is read of a web page may be missing.
        bool page_bytes = false;
    };

    Conversation(support::RunningServer& server, std::string folder, Excuses excuses);

    void run();

  private:
    void perform(const std::function<void()>& step);
    void expect(const char* step, message::Status found, message::Status wanted,
                std::initializer_list<message::Status> failures) const;
    bool is_excused() const { return excuses_.failure(); }
    std::string on_disk(const std::string& name) const;

    void await_solitude();
    void create_folder(const std::string& name);
    void upload(const std::string& name, const std::string& bytes, std::int64_t time);
    message::Status send_rest(const std::string& bytes);
    void break_off_upload(const std::string& name, const std::string& bytes, std::int64_t time);
    void download(const std::string& name, bool encrypted);
    void list();
    void rename(const std::string& from, const std::string& to);
    void remove(const std::string& name);
    void ask_for_figures();
    void browse();

    support::RunningServer& server_;
    const std::string folder_;
    const Excuses excuses_;
    std::unique_ptr<Peer> peer_;
};

}  // namespace trials
