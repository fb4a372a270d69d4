#include "bench/peers/sshd.h"

#include <filesystem>
#include <utility>
#include <vector>

#include "bench/clients/command_client.h"
#include "tests/support/child_process.h"
#include "tests/support/files.h"
#include "tests/support/raw_socket.h"

namespace bench {
namespace {

constexpr const char* program = "/usr/sbin/sshd";

void make_key(const std::string& path) {
    support::output_of("/usr/bin/ssh-keygen",
                       {"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", path});
}

// sshd_config(5).
constexpr const char* settings = R"(
ListenAddress 127.0.0.1:{port}
HostKey {folder}host_key
AuthorizedKeysFile {folder}authorized_keys
StrictModes no
UsePAM no
PidFile none
LogLevel QUIET
Subsystem sftp internal-sftp
ForceCommand internal-sftp
)";

std::vector<std::string> command(const std::string& folder, std::uint16_t port) {
    make_key(folder + "user_key");
    make_key(folder + "host_key");
    write_settings(folder + "host_key", support::read_file(folder + "host_key"));
    write_settings(folder + "authorized_keys", support::read_file(folder + "user_key.pub"));
    write_settings(folder + "sshd_config", settings,
                   {{"{folder}", folder}, {"{port}", std::to_string(port)}});
    return {program, "-D", "-e", "-f", folder + "sshd_config"};
}

class SftpClient : public CommandClient {
  public:
    SftpClient(std::string folder, std::string files, std::uint16_t port)
        : folder_(std::move(folder)), files_(std::move(files)), port_(port) {}

  protected:
    Command get(const std::string& name) const override {
        return with("get " + files_ + name + ' ' + folder_ + "received");
    }
    Command put(const std::string& name) const override {
        return with("put " + files_ + "source " + files_ + name);
    }

  private:
    Command with(const std::string& line) const {
        const std::string batch = folder_ + "batch";
        support::write_file(batch, line + '\n');
        return {"/usr/bin/sftp",
                "-q",
                "-b",
                batch,
                "-F",
                "none",
                "-P",
                std::to_string(port_),
                "-i",
                folder_ + "user_key",
                "-o",
                "IdentitiesOnly=yes",
                "-o",
                "StrictHostKeyChecking=no",
                "-o",
                "UserKnownHostsFile=" + folder_ + "known_hosts",
                peer_user() + "@127.0.0.1"};
    }

    std::string folder_;
    std::string files_;
    std::uint16_t port_;
};

}  // namespace

Sshd::Sshd(const Workspace& workspace)
    : folder_(workspace.make_private_folder("sshd")),
      files_(workspace.files()),
      port_(support::free_port()),
      process_(command(folder_, port_), port_) {
}

Contender Sshd::sftp() const {
    return {"sftp", process_.pid(), false, [folder = folder_, files = files_, port = port_] {
                return std::make_unique<SftpClient>(folder, files, port);
            }};
}

}  // namespace bench
