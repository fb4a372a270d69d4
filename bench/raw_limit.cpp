#include "bench/raw_limit.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <span>
#include <stdexcept>
#include <system_error>

#include "aes_ecb/aes_ecb.h"
#include "bench/socket.h"
#include "bench/transfer.h"
#include "src/message/catalogue.h"
#include "src/message/payload_key.h"
#include "src/message/status.h"

namespace {

constexpr std::size_t chunk = 65536;
constexpr std::size_t receive_size = 1 << 20;
constexpr std::size_t alignment = 4096;
constexpr message::PayloadKey key = message::make_payload_key();

class File {
  public:
    File(const std::string& path, int flags) : descriptor_(open(path.c_str(), flags, 0600)) {
        if (descriptor_ < 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
    ~File() { close(descriptor_); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    std::size_t read(std::span<std::byte> bytes) const {
        const ssize_t got = ::read(descriptor_, bytes.data(), bytes.size());
        return got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    void write(std::span<const std::byte> bytes) const {
        if (::write(descriptor_, bytes.data(), bytes.size()) !=
            static_cast<ssize_t>(bytes.size())) {
            throw std::system_error(errno, std::generic_category(), "write");
        }
    }
    std::int64_t size() const {
        struct stat status {};
        fstat(descriptor_, &status);
        return status.st_size;
    }

  private:
    int descriptor_;
};

template <typename Record>
void answer(const Socket& socket, Record record, int flags = 0) {
    message::to_network_order(record);
    socket.send_record(record, flags);
}

// A page-aligned buffer of which the data starts at a cache line, with room for the header before.
struct Frame {
    static constexpr std::size_t data_offset = 64;
    static constexpr std::size_t header_size = sizeof(message::DataResponse);

    alignas(alignment) std::byte bytes[data_offset + chunk];

    std::span<std::byte> data() { return std::span(bytes).subspan(data_offset); }
    std::span<const std::byte> with_header(std::size_t length) {
        message::DataResponse header{message::DownloadFileData::response_type, message::status_ok,
                                     static_cast<std::uint32_t>(length)};
        message::to_network_order(header);
        std::memcpy(bytes + data_offset - header_size, &header, header_size);
        return std::span(bytes).subspan(data_offset - header_size, header_size + length);
    }
};

void send_enciphered(const Socket& socket, std::span<const std::byte> plain, ByteArray& cipher) {
    aes_ecb_encrypt_data(key.data(), key.size(),
                         reinterpret_cast<const std::uint8_t*>(plain.data()), plain.size(), cipher);
    // Both go out as one: the kernel waits for the rest.
    answer(socket,
           message::DataResponse{message::DownloadFileData::response_type, message::status_ok,
                                 static_cast<std::uint32_t>(cipher.size())},
           MSG_MORE);
    socket.send(std::as_bytes(std::span(cipher)));
}

void send_file(const Socket& socket, const File& file, bool encrypted) {
    const auto frame = std::make_unique<Frame>();
    ByteArray cipher;
    while (const std::size_t got = file.read(frame->data())) {
        if (encrypted) {
            send_enciphered(socket, frame->data().first(got), cipher);
        } else {
            socket.send(frame->with_header(got));
        }
    }
    socket.send(frame->with_header(0));
}

void serve_download(const Socket& socket, const std::string& folder) {
    auto prepare = socket.receive_record<message::DownloadFilePrepareRequest>();
    message::to_host_order(prepare);
    socket.discard(prepare.path_length);
    const File file(folder + source_name, O_RDONLY);
    message::DownloadFilePrepareResponse prepared{};
    prepared.type = message::DownloadFilePrepare::response_type;
    prepared.file_size = file.size();
    answer(socket, prepared);

    socket.receive_record<message::DownloadFileDataRequest>();
    send_file(socket, file, prepare.encrypted != 0);
    socket.receive_record<message::TypeOnlyRequest>();
    answer(socket, message::PlainResponse{message::DownloadFileFinish::response_type, 0});
}

// What has been received and not yet taken apart, in one buffer that is read into again and again.
class Incoming {
  public:
    // What follows as one piece of at least `size` bytes.
    std::span<const std::byte> at_least(const Socket& socket, std::size_t size) {
        if (end_ - begin_ < size) {
            std::memmove(buffer_, buffer_ + begin_, end_ - begin_);
            end_ -= begin_;
            begin_ = 0;
        }
        while (end_ - begin_ < size) {
            const std::size_t got = socket.receive_some(std::span(buffer_).subspan(end_));
            if (got == 0) {
                throw std::runtime_error("the client has gone");
            }
            end_ += got;
        }
        return std::span(buffer_).subspan(begin_, end_ - begin_);
    }
    void drop(std::size_t size) { begin_ += size; }

  private:
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    alignas(alignment) std::byte buffer_[receive_size];
};

std::span<const std::byte> deciphered(std::span<const std::byte> cipher, ByteArray& plain) {
    if (!aes_ecb_decrypt_data(key.data(), key.size(),
                              reinterpret_cast<const std::uint8_t*>(cipher.data()), cipher.size(),
                              plain)) {
        throw std::runtime_error("bad cipher text");
    }
    return std::as_bytes(std::span(plain));
}

void receive_file(const Socket& socket, const File& file, bool encrypted) {
    const auto incoming = std::make_unique<Incoming>();
    ByteArray plain;
    while (true) {
        message::UploadFileDataRequest header{};
        const auto front = incoming->at_least(socket, sizeof header.type);
        std::memcpy(&header, front.data(), sizeof header.type);
        message::to_host_order(header);
        if (header.type == message::UploadFileFinish::type) {
            return;
        }
        std::memcpy(&header, incoming->at_least(socket, sizeof header).data(), sizeof header);
        message::to_host_order(header);
        const auto message = incoming->at_least(socket, sizeof header + header.data_length);
        const auto data = message.subspan(sizeof header, header.data_length);
        file.write(encrypted ? deciphered(data, plain) : data);
        incoming->drop(sizeof header + header.data_length);
    }
}

void serve_upload(const Socket& socket, const std::string& folder) {
    auto prepare = socket.receive_record<message::UploadFilePrepareRequest>();
    message::to_host_order(prepare);
    socket.discard(prepare.path_length);
    {
        const File file(folder + target_name, O_WRONLY | O_CREAT | O_APPEND);
        message::UploadFilePrepareResponse prepared{};
        prepared.type = message::UploadFilePrepare::response_type;
        prepared.status = message::status_file_incomplete;
        answer(socket, prepared);
        receive_file(socket, file, prepare.encrypted != 0);
    }
    answer(socket, message::PlainResponse{message::UploadFileFinish::response_type, 0});
}

}  // namespace

void serve_raw_limit(std::uint16_t port, const std::string& folder) {
    const Socket listener = Socket::listen_on(port);
    std::cout << "ready" << std::endl;
    while (true) {
        const Socket socket = listener.accept();
        std::byte type[2];
        socket.peek(type);
        if (type[1] == std::byte{message::DownloadFilePrepare::type}) {
            serve_download(socket, folder);
        } else {
            serve_upload(socket, folder);
        }
    }
}
