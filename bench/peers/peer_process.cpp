#include "bench/peers/peer_process.h"

#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "bench/socket.h"
#include "tests/support/files.h"

namespace bench {
namespace {

constexpr const char* account_without_rights = "www-data";
constexpr auto start_limit = std::chrono::seconds(10);
constexpr auto pause = std::chrono::milliseconds(10);

std::vector<std::string> as_peer_user(const std::vector<std::string>& command) {
    if (!std::filesystem::exists(command.front())) {
        throw std::runtime_error(command.front() + " is missing: tools/packages bench");
    }
    if (geteuid() != 0) {
        return command;
    }
    std::vector<std::string> all = {"/usr/bin/setpriv", "--reuid=" + peer_user(), "--init-groups",
                                    "--regid=" + peer_user(), "--"};
    all.insert(all.end(), command.begin(), command.end());
    return all;
}

bool is_answering(std::uint16_t port) {
    try {
        Socket::connect_to(port);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace

std::string peer_user() {
    if (geteuid() == 0) {
        return account_without_rights;
    }
    const passwd* user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : "";
}

PeerProcess::PeerProcess(const std::vector<std::string>& command, std::uint16_t port)
    : process_(as_peer_user(command).front(), as_peer_user(command)) {
    const auto deadline = std::chrono::steady_clock::now() + start_limit;
    while (!is_answering(port)) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error(command.front() + " does not answer");
        }
        std::this_thread::sleep_for(pause);
    }
}

void write_settings(const std::string& path, std::string text,
                    const std::map<std::string, std::string>& values) {
    for (const auto& [name, value] : values) {
        for (std::size_t at = text.find(name); at != std::string::npos;
             at = text.find(name, at + value.size())) {
            text.replace(at, name.size(), value);
        }
    }
    support::write_file(path, text);
    std::filesystem::permissions(path, std::filesystem::perms(0600));
    if (geteuid() == 0) {
        const passwd* user = getpwnam(account_without_rights);
        if (user == nullptr || chown(path.c_str(), user->pw_uid, user->pw_gid) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
}

}  // namespace bench
