#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace bench {

// A row of small files of one size: `folder`/0, `folder`/1 and so on.
struct FileRow {
    std::string folder;
    int count = 0;
    std::int64_t size = 0;

    std::string name(int index) const { return folder + '/' + std::to_string(index); }
};

// One connection to a contender. Costs as little as possible, so that what is measured is the
// serving side: received data is thrown away in the kernel, sent data is one block again and again.
// Names are relative to the folder that all contenders serve. Throws if anything but success comes,
// and if the contender doesn't speak of such a thing.
class Client {
  public:
    virtual ~Client() = default;

    virtual void download(const std::string& /*name*/, std::int64_t /*size*/) { refuse(); }
    virtual void upload(const std::string& /*name*/, std::int64_t /*size*/) { refuse(); }

    // All files of the row, one after the other.
    virtual void download_all(const FileRow& files) {
        for (int index = 0; index < files.count; ++index) {
            download(files.name(index), files.size);
        }
    }
    virtual void upload_all(const FileRow& files) {
        for (int index = 0; index < files.count; ++index) {
            upload(files.name(index), files.size);
        }
    }

    // The smallest request that there is, and that many of them, sent without awaiting answers.
    virtual void ask() { refuse(); }
    virtual void ask_ahead(int /*count*/) { refuse(); }

    virtual void list(const std::string& /*folder*/) { refuse(); }

  private:
    [[noreturn]] static void refuse() {
        throw std::logic_error("this contender is not asked for that");
    }
};

// File data of one send call, both ways.
inline constexpr std::int64_t chunk = 65536;

}  // namespace bench
