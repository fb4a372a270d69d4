#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <ctime>

#include "client/listing.h"
#include "client/remote_tree.h"
#include "tests/unit/client/transfer_fixture.h"

// A server that means harm, and other users of this machine who do.
namespace {

namespace fs = std::filesystem;
using transmit::detail::info_ending;

// As many bytes as the client takes, at most `most`.
std::size_t flood(PeerConnection& peer, std::string_view piece, std::size_t most) {
    std::size_t sent = 0;
    try {
        for (; sent < most; sent += piece.size()) {
            peer.send(piece);
        }
    } catch (const std::runtime_error&) {
    }
    return sent;
}

std::string block(std::size_t size) {
    return bytes_of(message::DataResponse{9, 0, static_cast<std::uint32_t>(size)}) +
           std::string(size, 'x');
}

class HostileServer : public Transfer {
  protected:
    transmit::TransferSummary fetch_small(const ScriptedPeer& peer, std::int64_t size) {
        transmit::DownloadBatch batch;
        batch.files.push_back({{1, 0, "a"}, target_, {}, transmit::FileStamp{size, source_time}});
        return transmit::download_files({{"127.0.0.1", peer.port()}, limits_, hasty(0s)}, batch,
                                        options_, watch_);
    }

    // A small download up to its data.
    static ScriptedPeer::Script small(ScriptedPeer::Script script) {
        return greeted([script = std::move(script)](PeerConnection& peer) {
            peer.expect<message::SetTransmitSpeed>();
            peer.answer<message::SetTransmitSpeed>();
            prepare_download(peer, 0, 10);
            peer.expect<message::DownloadFileData>();
            script(peer);
        });
    }
};

TEST_F(HostileServer, NoMoreThanTheAnnouncedBytesAreTaken) {
    constexpr std::size_t announced = 1'000'000;
    constexpr std::size_t most = 64U << 20;
    std::size_t sent = 0;
    const auto floods = greeted([&](PeerConnection& peer) {
        start_download(peer, announced);
        sent = flood(peer, block(65'536), most);
    });
    {
        std::size_t taken = 0;
        transmit::DownloadBatch batch;
        batch.files.push_back({{1, 0, "a"},
                               "-",
                               [&](std::span<const iovec> pieces, const transmit::Cancelled&) {
                                   for (const iovec& piece : pieces) {
                                       taken += piece.iov_len;
                                   }
                                   return transmit::Result<void>();
                               },
                               {}});
        ScriptedPeer peer({floods});
        const auto summary = transmit::download_files(
            {{"127.0.0.1", peer.port()}, limits_, hasty(0s)}, batch, options_, watch_);
        EXPECT_FALSE(summary.complete());
        peer.played();
        EXPECT_LE(taken, announced);
        EXPECT_LT(sent, most);
    }
    for (const std::string& piece :
         {block(10), block(1), bytes_of(message::DataResponse{9, 0, 1U << 30})}) {
        ScriptedPeer peer(
            {small([&](PeerConnection& connection) { sent = flood(connection, piece, most); })});
        EXPECT_FALSE(fetch_small(peer, 10).complete());
        peer.played();
        EXPECT_LT(sent, most);
        EXPECT_FALSE(fs::exists(target_));
    }
}

TEST_F(HostileServer, AnUploadEndsWellOnlyWithTheStatusesItKnows) {
    write_file(source_, "small");
    set_time(source_, source_time);
    transmit::UploadBatch batch;
    batch.files.push_back({source_, {1, 0, "a.bin"}, {}, {}, 5});
    for (const std::uint16_t status : std::initializer_list<std::uint16_t>{1, 27, 999, 65535}) {
        const auto once = [status](PeerConnection& peer) {
            prepare_upload(peer, status);
            receive_upload(peer, 5);
            finish_upload(peer);
        };
        ScriptedPeer peer({empty([&](PeerConnection& connection) {
            once(connection);
            // With care, and then without an answer to hope for.
            connection.expect<message::UploadFilePrepare>();
            answer_prepare(connection, status);
        })});
        EXPECT_FALSE(transmit::upload_files({{"127.0.0.1", peer.port()}, limits_, hasty(0s)}, batch,
                                            options_, watch_)
                         .complete())
            << status;
    }
}

TEST_F(HostileServer, ADownloadEndsWellOnlyWithTheStatusesItKnows) {
    // In the look at the source behind the last byte: of its end, of what is there, of that's end.
    for (const int wrong : {0, 1, 2}) {
        ScriptedPeer peer({greeted([&](PeerConnection& connection) {
            start_download(connection, content_.size());
            send_block(connection, content_);
            send_block(connection, "");
            const auto status = [wrong](int place) {
                return static_cast<std::uint16_t>(place == wrong ? 999 : 0);
            };
            connection.expect<message::DownloadFileFinish>();
            connection.answer<message::DownloadFileFinish>({.type = 0, .status = status(0)});
            prepare_download(connection, status(1), content_.size());
            connection.expect<message::DownloadFileFinish>();
            connection.answer<message::DownloadFileFinish>({.type = 0, .status = status(2)});
        })});
        EXPECT_FALSE(download(peer, hasty(0s))) << wrong;
        EXPECT_FALSE(fs::exists(target_));
    }
    ScriptedPeer peer({greeted([](PeerConnection& connection) {
        connection.expect<message::DownloadFilePrepare>();
        message::DownloadFilePrepareResponse response{};
        response.file_size = -1;
        connection.answer<message::DownloadFilePrepare>(response);
    })});
    EXPECT_EQ(download(peer).error().kind, ErrorKind::bad_answer);
}

// Each of them took a generic parser seconds to minutes, or was beyond it.
TEST(HostileListing, IsReadInATimeThatItsLengthBounds) {
    std::string attributes = "<root><file";
    std::string folders = "<root>";
    for (int index = 0; index < 200'000; ++index) {
        attributes.append(" a").append(std::to_string(index)).append("=''");
        folders.append("<folder name='a'>");
    }
    for (const std::string& document :
         {attributes + "/></root>", folders,
          "<!DOCTYPE root [" + std::string(1'000'000, ' ') + "]><root/>",
          "<root>" + std::string(1'000'000, '<'), "<root a='" + std::string(1'000'000, '&'),
          std::string("<root><folder name='&#27;'/></root>"),
          std::string("<root><folder name='&a;'/></root>")}) {
        const auto before = std::clock();
        EXPECT_FALSE(transmit::parse_listing(document)) << document.substr(0, 40);
        EXPECT_LT((std::clock() - before) / CLOCKS_PER_SEC, 5);
    }
}

// A wish to end is heard while bytes flow without a pause.
TEST_F(HostileServer, AnEndlessAnswerEndsWithTheWish) {
    std::atomic<bool> enough = false;
    limits_ = patient([&] { return enough.load(); });
    ScriptedPeer peer({[&](PeerConnection& connection) {
        connection.expect<message::SetTransmitSpeed>();
        connection.answer<message::SetTransmitSpeed>();
        connection.expect<message::GetPathContent>();
        connection.send(bytes_of(message::DataResponse{29, 10, 200U << 20}));
        flood(connection, std::string(100'000, ' '), 1'000'000);
        enough = true;
        EXPECT_LT(flood(connection, std::string(100'000, ' '), 150U << 20), 150U << 20);
    }});
    transmit::RetryingConnection server({"127.0.0.1", peer.port()}, limits_, hasty(0s));
    EXPECT_EQ(transmit::list_folder(server, {1, 0, "t"}).error().kind, ErrorKind::cancelled);
}

class ForeignFiles : public Transfer {
  protected:
    transmit::Result<transmit::TransferReport> fetch() {
        ScriptedPeer peer({greeted([&](PeerConnection& connection) {
            const auto start = start_download(connection, content_.size());
            EXPECT_EQ(start, 0);
            send_block(connection, content_);
            finish_download(connection, content_.size());
        })});
        return download(peer, hasty(0s));
    }
};

TEST_F(ForeignFiles, UnderWorkNamesAreLeftAlone) {
    const std::string outside = folder_.path() + "outside";
    const auto make = [&](int kind, const std::string& path) {
        switch (kind) {
            case 0:
                return write_file(path, "mine");
            case 1:
                return fs::create_hard_link(outside, path);
            case 2:
                return fs::create_symlink(outside, path);
            default:
                ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
        }
    };
    for (const std::string& path : {work_file(), work_file(info_ending)}) {
        for (const int kind : {0, 1, 2, 3}) {
            write_file(outside, "precious");
            make(kind, path);
            const auto before = fs::symlink_status(path);
            const auto report = fetch();
            ASSERT_TRUE(report) << report.error().text;
            EXPECT_TRUE(read_file(target_) == content_);
            EXPECT_EQ(read_file(outside), "precious");
            EXPECT_EQ(fs::symlink_status(path).type(), before.type());
            EXPECT_TRUE(kind != 0 || read_file(path) == "mine");
            fs::remove(path);
            fs::remove(target_);
            EXPECT_EQ(names(), (std::vector<std::string>{"outside", "source.bin"}));
        }
    }
}

TEST_F(ForeignFiles, OnlyARegularFileIsReplaced) {
    const std::string outside = folder_.path() + "outside";
    write_file(outside, "precious");
    for (const char* kind : {"link", "broken link", "pipe", "socket"}) {
        if (kind == "link"s) {
            fs::create_symlink(outside, target_);
        } else if (kind == "broken link"s) {
            fs::create_symlink(folder_.path() + "none", target_);
        } else if (kind == "pipe"s) {
            ASSERT_EQ(::mkfifo(target_.c_str(), 0600), 0);
        } else {
            const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            target_.copy(address.sun_path, sizeof address.sun_path - 1);
            ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
            ::close(listener);
        }
        const auto before = fs::symlink_status(target_).type();
        const auto report = fetch();
        ASSERT_FALSE(report) << kind;
        EXPECT_EQ(report.error().kind, ErrorKind::local_file);
        EXPECT_EQ(fs::symlink_status(target_).type(), before) << kind;
        EXPECT_EQ(read_file(outside), "precious");
        EXPECT_EQ(names().size(), 3U) << kind;
        fs::remove(target_);
    }
}

TEST_F(ForeignFiles, ALinkBelowTheTargetFolderIsFollowedOnRequestOnly) {
    const std::string root = folder_.path() + "root";
    fs::create_directories(root);
    fs::create_directories(folder_.path() + "elsewhere");
    fs::create_directory_symlink(folder_.path() + "elsewhere", root + "/sub");
    for (const bool small : {false, true}) {
        for (const bool follow : {false, true}) {
            options_.follow_links = follow;
            const auto stamp =
                small ? std::optional(transmit::FileStamp{1, source_time}) : std::nullopt;
            transmit::DownloadBatch batch;
            batch.files.push_back({{1, 0, "f"}, root + "/sub/f", {}, stamp, root});
            const auto whole = [](PeerConnection& connection) {
                start_download(connection, 1);
                send_block(connection, "x");
                finish_download(connection, 1);
            };
            const auto at_once = [&](PeerConnection& connection) {
                connection.expect<message::SetTransmitSpeed>();
                connection.answer<message::SetTransmitSpeed>();
                start_download(connection, 1);
                send_block(connection, "x");
                send_block(connection, "");
                connection.expect<message::DownloadFileFinish>();
                connection.answer<message::DownloadFileFinish>();
                connection.expect<message::SetTransmitSpeed>();
                connection.answer<message::SetTransmitSpeed>();
                if (!follow) {
                    whole(connection);
                }
            };
            ScriptedPeer peer({greeted([&](PeerConnection& connection) {
                small ? at_once(connection) : whole(connection);
            })});
            const auto summary = transmit::download_files(
                {{"127.0.0.1", peer.port()}, limits_, hasty(0s)}, batch, options_, watch_);
            EXPECT_EQ(summary.complete(), follow);
            EXPECT_EQ(fs::exists(folder_.path() + "elsewhere/f"), follow);
            fs::remove(folder_.path() + "elsewhere/f");
        }
    }
}

}  // namespace
