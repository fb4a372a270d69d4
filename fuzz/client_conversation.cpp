#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <thread>

#include "client/batch.h"
#include "client/remote_tree.h"
#include "fuzz/fuzz_target.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"

// A server that answers with any bytes whatsoever, the same on each connection. The client fetches
// a tree and files and sends one: it comes to an end, stays inside its folder and leaves a file
// only if it reported it whole, in that size.
namespace {

using namespace std::chrono_literals;

// Takes what comes and says what it has to say, one connection after the other.
class Babbler {
  public:
    explicit Babbler(std::string_view bytes)
        : bytes_(bytes), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        require(bind(listener_, generic, length) == 0 && listen(listener_, 8) == 0 &&
                    getsockname(listener_, generic, &length) == 0,
                "there is a port to listen on");
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~Babbler() {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
    }
    Babbler(const Babbler&) = delete;
    Babbler& operator=(const Babbler&) = delete;

    std::uint16_t port() const { return port_; }

  private:
    void serve() const {
        for (int peer = 0; (peer = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            send(peer, bytes_.data(), bytes_.size(), MSG_NOSIGNAL);
            shutdown(peer, SHUT_WR);
            char taken[4096];
            while (recv(peer, taken, sizeof taken, 0) > 0) {
            }
            close(peer);
        }
    }

    std::string_view bytes_;
    int listener_;
    std::uint16_t port_ = 0;
    std::thread thread_;
};

transmit::Server server_at(std::uint16_t port) {
    transmit::Server server;
    server.endpoint.port = port;
    server.limits.silence = 100ms;
    server.retry.time_limit = 0s;
    return server;
}

// Keeps the sizes of the files that the client took for whole.
class Witness : public transmit::TransferObserver {
  public:
    void done(std::size_t file, const transmit::TransferReport& report) override {
        sizes[file] = report.size;
    }

    std::map<std::size_t, std::int64_t> sizes;
};

// Its connection ends here: the server serves one at a time.
transmit::DownloadBatch tree_of(const transmit::Server& server, const std::string& target) {
    transmit::RetryingConnection connection(server.endpoint, server.limits, server.retry);
    auto tree = transmit::download_tree(connection, {.path = "t"}, target);
    return tree ? *std::move(tree) : transmit::DownloadBatch{};
}

}  // namespace

// The first byte tells the options.
void run(std::string_view input) {
    static const support::TemporaryFolder folder;
    if (input.empty()) {
        return;
    }
    transmit::TransferOptions options;
    options.encrypted = (input.front() & 1) != 0;
    options.verify = (input.front() & 2) != 0;
    options.files_at_once = 1;
    options.streams = 1;
    Babbler babbler(input.substr(1));
    const transmit::Server server = server_at(babbler.port());
    const std::string inside = folder.path() + "inside/";
    transmit::TransferObserver nobody;

    transmit::DownloadBatch down = tree_of(server, inside + "tree");
    down.files.push_back({{.path = "one"}, inside + "one", {}, {}});
    down.files.push_back({{.path = "two"}, inside + "two", {}, transmit::FileStamp{3, 1000}});
    Witness witness;
    transmit::download_files(server, down, options, witness);
    std::size_t file = down.files.size() - 2;
    for (const char* name : {"one", "two"}) {
        std::error_code missing;
        const auto size = std::filesystem::file_size(inside + name, missing);
        const auto told = witness.sizes.find(file++);
        require(missing ? told == witness.sizes.end()
                        : told != witness.sizes.end() && told->second == std::int64_t(size),
                "a file is there if it was told, and as long as it was told");
    }

    support::write_file(inside + "source", "source");
    transmit::UploadBatch up;
    up.files.push_back({inside + "source", {.path = "up"}, {}, {}, 6});
    transmit::upload_files(server, up, options, nobody);

    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        require(entry.path().filename() == "inside", "the client stays inside its folder");
    }
    std::filesystem::remove_all(inside);
}
