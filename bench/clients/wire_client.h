#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "bench/client.h"
#include "bench/incoming.h"
#include "bench/socket.h"

namespace bench {

// Speaks the wire of the server. What a client asks for ahead of the answers goes out in batches
// that both sides' kernel buffers hold, so that nobody waits for the other for good.
class WireClient : public Client {
  public:
    struct Manner {
        bool encrypted = false;
        // Rows of files: whether a file's conversation is sent before the one before is answered.
        bool ahead = false;
    };

    WireClient(std::uint16_t port, Manner manner);

    void download(const std::string& name, std::int64_t size) override;
    void upload(const std::string& name, std::int64_t size) override;
    void download_all(const FileRow& files) override;
    void upload_all(const FileRow& files) override;
    void ask() override;
    void ask_ahead(int count) override;
    void list(const std::string& folder) override;

  private:
    using Bytes = std::vector<std::byte>;

    template <typename Record>
    void send(Record record, const std::string& tail = "");
    template <typename Row>
    typename Row::Response expect(std::uint16_t wanted);
    void expect_upload();
    void expect_download();

    Bytes download_prepare(const std::string& name) const;
    Bytes upload_prepare(const std::string& name, std::int64_t size) const;
    // A whole message with that many plain bytes of file data.
    const Bytes& data_message(std::int64_t plain_length);

    Socket socket_;
    Incoming incoming_;
    Manner manner_;
    Bytes data_message_;
    std::int64_t data_length_ = -1;
};

}  // namespace bench
