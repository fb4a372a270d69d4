#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "aes_ecb/aes_ecb.h"
#include "bench/incoming.h"
#include "bench/limit/frames.h"
#include "bench/limit/limit_file.h"
#include "bench/socket.h"

namespace bench {

// One connection of the raw limit.
class LimitConnection {
  public:
    LimitConnection(Socket socket, std::string folder);

    // Answers until the client goes, which is thrown.
    void serve();

  private:
    void serve_one(std::uint16_t type);
    void prepare_upload();
    void receive_data();
    void finish_upload();
    void prepare_download();
    void send_stream();
    void finish_download();
    void check_storage_id();

    std::string take_path(std::size_t length);
    std::span<const std::byte> converted(std::span<const std::byte> data, bool encrypt);
    void send_enciphered_stream();
    void send_plain_stream();

    // Answers are gathered until nothing is left to answer.
    template <typename Record>
    void answer(Record record);
    void append(std::span<const std::byte> bytes);
    void flush();

    Socket socket_;
    Incoming incoming_{socket_};
    std::vector<std::byte> outgoing_;
    std::string folder_;
    std::string path_;
    LimitFile file_;
    std::int64_t time_ = 0;
    bool encrypted_ = false;
    ByteArray converted_;
    std::unique_ptr<Frames> frames_ = std::make_unique_for_overwrite<Frames>();
};

}  // namespace bench
