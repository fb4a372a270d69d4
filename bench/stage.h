#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bench/clients/wire_client.h"
#include "bench/contender.h"
#include "bench/measure/rounds.h"
#include "bench/peers/nginx.h"
#include "bench/peers/rsync.h"
#include "bench/peers/sshd.h"
#include "bench/peers/vsftpd.h"
#include "bench/workspace.h"
#include "tests/support/running_server.h"

namespace bench {

struct Options {
    std::vector<std::string> only;  // works; all if empty
    bool alone = false;             // without the peers
    int rounds = 5;
    std::int64_t size = 512;  // MiB of the big file
    bool full = false;
};

// Where the works are done: the folder, and the contenders, each started when it is first asked
// for. All serve the same folder.
class Stage {
  public:
    Stage(Options options, const std::string& program);

    const Options& options() const { return options_; }
    const Workspace& workspace() const { return workspace_; }

    // The server, and the raw limit of its wire; the manner is that of the clients.
    Contender server(WireClient::Manner manner = {});
    Contender raw_limit(WireClient::Manner manner = {});
    support::RunningServer& running_server() { return server_; }

    const Nginx& nginx() { return started(nginx_); }
    const Vsftpd& vsftpd() { return started(vsftpd_); }
    const Sshd& sshd() { return started(sshd_); }
    const Rsync& rsync() { return started(rsync_); }

    // Has the contenders do the task in turns and prints what came out; the first is the one that
    // the others are set against.
    void compare(const Task& task, std::vector<Contender> contenders) const;

  private:
    template <typename Peer>
    const Peer& started(std::unique_ptr<Peer>& peer) {
        if (peer == nullptr) {
            peer = std::make_unique<Peer>(workspace_);
        }
        return *peer;
    }

    Options options_;
    Workspace workspace_;
    support::RunningServer server_;
    std::uint16_t raw_limit_port_;
    support::ChildProcess raw_limit_;
    std::unique_ptr<Nginx> nginx_;
    std::unique_ptr<Vsftpd> vsftpd_;
    std::unique_ptr<Sshd> sshd_;
    std::unique_ptr<Rsync> rsync_;
};

}  // namespace bench
