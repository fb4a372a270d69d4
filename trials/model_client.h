#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "tests/support/running_server.h"
#include "tests/system/peer.h"

namespace trials {

// A client that does random things in a folder of its own and keeps a model of what has to stand
// there. Whatever the server says or holds otherwise is a failure of the test. One thread's own.
class ModelClient {
  public:
    ModelClient(const support::RunningServer& server, unsigned number);

    // One operation, chosen at random among those that are valid, and held against the model.
    void do_something();

    // The whole tree: every folder's listing, every file's bytes over the wire.
    void check_tree();

    std::uint64_t operations() const { return operations_; }

  private:
    // A folder, or a file whose bytes are those of a common store from `begin` on.
    struct Entry {
        bool is_folder = true;
        std::size_t begin = 0;
        std::size_t size = 0;
        std::int64_t time = 0;
    };
    using Tree = std::map<std::string, Entry>;  // by path

    // The operations; false, with nothing done: what was drawn isn't valid.
    bool upload();
    bool upload_with_a_break();
    bool download();
    bool create_folder();
    bool rename();
    bool remove();
    bool list();
    bool look_around();

    static std::string_view bytes_of(const Entry& file);
    std::string on_server(const std::string& path) const { return folder_ + "/" + path; }
    request::Upload announcement(const std::string& path, const Entry& file, bool encrypted) const;
    Entry new_file();
    std::string some_path();
    std::string some_folder();
    bool is_folder(const std::string& path) const;
    bool has_room_for(const std::string& path) const;
    void keep(const std::string& path, const Entry& entry);
    void erase(const std::string& path);
    void check_folder(const std::string& path);
    void check_file(const std::string& path, const Entry& file);
    std::size_t up_to(std::size_t most);
    void connect();

    const support::RunningServer& server_;
    const std::string folder_;
    std::mt19937 generator_;
    std::unique_ptr<Peer> peer_;
    Tree tree_;
    std::int64_t time_ = 1;
    std::uint64_t operations_ = 0;
};

}  // namespace trials
