#include "bench/peers/rsync.h"

#include <atomic>
#include <utility>
#include <vector>

#include "bench/clients/command_client.h"
#include "tests/support/raw_socket.h"

namespace bench {
namespace {

constexpr const char* program = "/usr/bin/rsync";

// rsyncd.conf(5).
constexpr const char* settings = R"(
address = 127.0.0.1
port = {port}
use chroot = no
[files]
path = {files}
read only = no
)";

std::vector<std::string> command(const std::string& folder, const std::string& files,
                                 std::uint16_t port) {
    write_settings(folder + "rsyncd.conf", settings,
                   {{"{files}", files}, {"{port}", std::to_string(port)}});
    return {program, "--daemon", "--no-detach", "--log-file=" + folder + "log",
            "--config=" + folder + "rsyncd.conf"};
}

// Each client receives into a folder of its own, which is new, since what is there already would
// not be sent again; what it uploads comes from the row of small files.
class RsyncClient : public CommandClient {
  public:
    RsyncClient(const std::string& folder, std::string files, std::uint16_t port)
        : received_(folder + "received" + std::to_string(++count)),
          files_(std::move(files)),
          module_("rsync://127.0.0.1:" + std::to_string(port) + "/files/") {}
    ~RsyncClient() override { run({"/bin/rm", "-rf", received_}); }

  protected:
    Command get(const std::string& name) const override {
        return {program, "-rtO", "--whole-file", module_ + name, received_};
    }
    Command put(const std::string& name) const override {
        return {program, "-rtO", "--whole-file", files_ + "small/", module_ + name};
    }

  private:
    static inline std::atomic<int> count = 0;

    std::string received_;
    std::string files_;
    std::string module_;
};

}  // namespace

Rsync::Rsync(const Workspace& workspace)
    : folder_(workspace.make_private_folder("rsync")),
      files_(workspace.files()),
      port_(support::free_port()),
      process_(command(folder_, files_, port_), port_) {
}

Contender Rsync::plain() const {
    return {"rsync", process_.pid(), true, [folder = folder_, files = files_, port = port_] {
                return std::make_unique<RsyncClient>(folder, files, port);
            }};
}

}  // namespace bench
