#pragma once

#include <cstdint>
#include <string>

#include "bench/client.h"
#include "bench/socket.h"

namespace bench {

// An anonymous FTP session in passive mode (RFC 959): a data connection for each file.
class FtpClient : public Client {
  public:
    // `folder`: where the served folder lies below the session's root.
    FtpClient(std::uint16_t port, std::string folder);

    void download(const std::string& name, std::int64_t size) override;
    void upload(const std::string& name, std::int64_t size) override;

  private:
    // Sends a command unless it is empty; throws unless the answer begins with `code`.
    std::string command(const std::string& line, const std::string& code);
    Socket open_data_connection();

    Socket control_;
    std::string folder_;
    std::string received_;
};

}  // namespace bench
