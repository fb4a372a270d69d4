#include "bench/peers/vsftpd.h"

#include <string>
#include <vector>

#include "bench/clients/ftp_client.h"
#include "tests/support/raw_socket.h"

namespace bench {
namespace {

constexpr const char* program = "/usr/sbin/vsftpd";

// vsftpd.conf(5).
constexpr const char* settings = R"(
listen=YES
listen_address=127.0.0.1
listen_port={port}
background=NO
run_as_launching_user=YES
anonymous_enable=YES
no_anon_password=YES
local_enable=NO
write_enable=YES
anon_upload_enable=YES
anon_other_write_enable=YES
allow_writeable_chroot=YES
anon_root={root}
xferlog_enable=NO
max_clients=0
seccomp_sandbox=NO
)";

std::vector<std::string> command(const Workspace& workspace, std::uint16_t port) {
    const std::string file = workspace.make_private_folder("vsftpd") + "vsftpd.conf";
    write_settings(file, settings,
                   {{"{root}", workspace.root()}, {"{port}", std::to_string(port)}});
    return {program, file};
}

}  // namespace

Vsftpd::Vsftpd(const Workspace& workspace)
    : port_(support::free_port()), process_(command(workspace, port_), port_) {
}

Contender Vsftpd::plain() const {
    return {"vsftpd", process_.pid(), true, [port = port_] {
                return std::make_unique<FtpClient>(port, "files/");
            }};
}

}  // namespace bench
