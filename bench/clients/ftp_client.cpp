#include "bench/clients/ftp_client.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>
#include <vector>

namespace bench {

FtpClient::FtpClient(std::uint16_t port, std::string folder)
    : control_(Socket::connect_to(port)), folder_(std::move(folder)) {
    command("", "220");
    command("USER anonymous", "230");
    command("TYPE I", "200");
}

void FtpClient::download(const std::string& name, std::int64_t size) {
    {
        const Socket data = open_data_connection();
        command("RETR " + folder_ + name, "150");
        data.discard(static_cast<std::uint64_t>(size));
    }
    command("", "226");
}

void FtpClient::upload(const std::string& name, std::int64_t size) {
    static const std::vector<std::byte> block(chunk, std::byte{'x'});
    {
        const Socket data = open_data_connection();
        command("STOR " + folder_ + name, "150");
        for (std::int64_t left = size; left > 0; left -= chunk) {
            data.send(std::span(block).first(static_cast<std::size_t>(std::min(left, chunk))));
        }
    }
    command("", "226");
}

std::string FtpClient::command(const std::string& line, const std::string& code) {
    if (!line.empty()) {
        control_.send(line + "\r\n");
    }
    while (received_.find("\r\n") == std::string::npos) {
        std::array<std::byte, 512> block;
        const std::size_t got = control_.receive_some(block);
        if (got == 0) {
            throw std::runtime_error("the FTP session ended");
        }
        received_.append(reinterpret_cast<const char*>(block.data()), got);
    }
    const std::size_t end = received_.find("\r\n");
    std::string answer = received_.substr(0, end);
    received_.erase(0, end + 2);
    if (!answer.starts_with(code)) {
        throw std::runtime_error(answer);
    }
    return answer;
}

// The answer ends in six numbers, (a,a,a,a,high,low): four of the address, two of the port.
Socket FtpClient::open_data_connection() {
    const std::string answer = command("PASV", "227");
    const std::size_t low = answer.rfind(',') + 1;
    const std::size_t high = low < 2 ? 0 : answer.rfind(',', low - 2) + 1;
    if (high == 0) {
        throw std::runtime_error(answer);
    }
    const unsigned long port =
        std::stoul(answer.substr(high)) * 256 + std::stoul(answer.substr(low));
    return Socket::connect_to(static_cast<std::uint16_t>(port));
}

}  // namespace bench
