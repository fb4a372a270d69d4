#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/system/measure.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"
#include "trials/loop_disk.h"

// The power goes in the middle of uploads.
namespace {

using measure::measured;
using measure::sized;
using message::status_file_incomplete;
using message::status_ok;

constexpr unsigned clients = 20;
constexpr std::size_t block = 60'000;
constexpr std::size_t checkpoint = 20 * block;  // a little more than the server's

const std::string all_bytes = support::random_bytes(24 << 20, 7);

// What a file holds follows from its number, which is its time and its name, too. Most are small;
// each fifth has up to 20 MiB, so that room is reserved for it and checkpoints are made.
std::string_view content_of(std::int64_t number) {
    const auto spread = static_cast<std::size_t>(number) * 7'919'993;
    const std::size_t size = number % 5 == 0 ? 1 + spread % (20 << 20) : 10'000 + spread % 300'000;
    return std::string_view(all_bytes).substr(static_cast<std::size_t>(number) * 13 % 500'000,
                                              size);
}

request::Upload upload_of(std::int64_t number) {
    return {.path = std::to_string(number), .size = std::ssize(content_of(number)), .time = number};
}

struct Cut {
    bool is_durable;
    const char* settings;
};

class PowerCutTrial : public testing::TestWithParam<Cut> {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root may make a disk";
        }
        try {
            disk_ = std::make_unique<trials::LoopDisk>();
            empty_disk();
        } catch (const std::system_error& error) {
            GTEST_SKIP() << "no disk can be made: " << error.what();
        }
        support::ServerSettings settings;
        settings.storages = {{.directory = storage()}};
        settings.further = GetParam().settings;
        server_ = std::make_unique<support::RunningServer>(settings);
    }

    std::string storage() const { return disk_->path() + "storage"; }

    // A new file system with the storage's folder, which an operator made long before the cut.
    void empty_disk() {
        disk_->format();
        std::filesystem::create_directories(storage());
        disk_->sync();
    }

    // The clients put files until the power goes, which it does when so many blocks have been sent.
    void cut_during_uploads(int blocks) {
        acknowledged_.clear();
        written_.clear();
        std::atomic<int> left{blocks};
        std::vector<std::jthread> threads;
        for (unsigned client = 0; client < clients; ++client) {
            threads.emplace_back([&, client] { put_files(client, left); });
        }
        while (left > 0) {
            std::this_thread::yield();
        }
        disk_->cut_power();
        threads.clear();
        EXPECT_EQ(server_->stop_by(SIGKILL), support::ended_by(SIGKILL));
        disk_->restart();
    }

    void put_files(unsigned client, std::atomic<int>& left) {
        try {
            std::mt19937 random(client + static_cast<unsigned>(first_number_));
            auto peer = std::make_unique<Peer>(server_->transmit_port());
            for (std::int64_t number = first_number_ + client;; number += clients) {
                if (peer->prepare(upload_of(number)).status != status_file_incomplete) {
                    break;
                }
                const std::string_view bytes = content_of(number);
                const bool breaks_off = random() % 4 == 0;
                const std::size_t length = breaks_off ? random() % bytes.size() : bytes.size();
                send(*peer, number, bytes.substr(0, length), left);
                if (breaks_off) {
                    peer = std::make_unique<Peer>(server_->transmit_port());
                } else if (peer->finish_upload() == status_ok) {
                    const std::lock_guard lock(mutex_);
                    acknowledged_.push_back(number);
                } else {
                    break;
                }
            }
        } catch (const std::runtime_error&) {
            // A block was refused: the disk has gone.
        }
        left = 0;
    }

    // The answer to another request says that the server has written what came before it.
    void send(Peer& peer, std::int64_t number, std::string_view bytes, std::atomic<int>& left) {
        for (std::size_t at = 0; at < bytes.size(); at += block) {
            peer.send_file_data(bytes.substr(at, block));
            --left;
            if (at % checkpoint == 0 && peer.ask(request::check_storage_id(1)) == status_ok) {
                const std::lock_guard lock(mutex_);
                written_[number] = at;
            }
        }
    }

    // Under a final name, and behind a stamp, stands no byte but the client's.
    void check_bytes() {
        for (const auto& entry : std::filesystem::directory_iterator(server_->storage_folder())) {
            const std::string path = entry.path();
            const bool is_final = entry.path().extension() != ".tcp";
            const std::int64_t number = std::stoll(entry.path().stem());
            if (!is_final && stored_file::time_of(path) != number) {
                continue;
            }
            const std::string bytes = support::read_file(path);
            EXPECT_TRUE(content_of(number).starts_with(bytes)) << path << ' ' << bytes.size();
            (is_final ? files_ : stamped_) += 1;
        }
    }

    // With checkpoints no more is lost than what comes between two of them.
    void check_checkpoints(std::int64_t number, std::int64_t offset) {
        const auto written = written_.find(number);
        if (GetParam().is_durable && written != written_.end()) {
            EXPECT_GE(offset + 2 * std::int64_t{checkpoint}, std::int64_t(written->second))
                << number;
        }
    }

    // Returns how many files of those that were acknowledged aren't there as they were.
    int count_lost() {
        int lost = 0;
        for (const std::int64_t number : acknowledged_) {
            const std::string path = server_->storage_folder() + std::to_string(number);
            const bool is_there = stored_file::exists(path) &&
                                  stored_file::time_of(path) == number &&
                                  support::read_file(path) == content_of(number);
            lost += is_there ? 0 : 1;
        }
        return lost;
    }

    // What goes on after the cut goes on from the client's bytes.
    void check_resumption() {
        Peer peer(server_->transmit_port());
        for (const auto& entry : std::filesystem::directory_iterator(server_->storage_folder())) {
            if (entry.path().extension() != ".tcp") {
                continue;
            }
            const std::int64_t number = std::stoll(entry.path().stem());
            const std::string_view bytes = content_of(number);
            const UploadPrepared prepared = peer.prepare(upload_of(number));
            if (prepared.status == status_file_incomplete) {
                check_checkpoints(number, prepared.offset);
                continued_ += static_cast<std::uint64_t>(prepared.offset);
                peer.send_file_data(bytes.substr(static_cast<std::size_t>(prepared.offset)));
                EXPECT_EQ(peer.finish_upload(), status_ok);
            }
            EXPECT_TRUE(support::read_file(server_->storage_folder() + std::to_string(number)) ==
                        bytes)
                << number << " from " << prepared;
        }
    }

    std::unique_ptr<trials::LoopDisk> disk_;
    std::unique_ptr<support::RunningServer> server_;
    std::int64_t first_number_ = 1;
    std::mutex mutex_;
    std::vector<std::int64_t> acknowledged_;
    std::map<std::int64_t, std::size_t> written_;  // at least so many bytes of each
    int files_ = 0;
    int stamped_ = 0;
    std::uint64_t continued_ = 0;
};

TEST_P(PowerCutTrial, NoByteIsWrongAndNothingDurableIsLost) {
    const int cuts = sized(3, 100);
    std::mt19937 generator(1);
    std::uniform_int_distribution<int> blocks(1, sized(1500, 6000));
    std::size_t acknowledged = 0;
    int lost = 0;
    for (int cut = 0; cut < cuts && !HasFailure(); ++cut) {
        SCOPED_TRACE(cut);
        cut_during_uploads(blocks(generator));
        check_bytes();
        acknowledged += acknowledged_.size();
        lost += count_lost();
        server_->start();
        check_resumption();
        EXPECT_EQ(server_->stop_by(SIGTERM), support::exited_with(0));
        empty_disk();
        server_->start();
        first_number_ += 100'000;
    }
    if (GetParam().is_durable) {
        EXPECT_EQ(lost, 0);
    }
    measured() << cuts << " cuts, " << (GetParam().is_durable ? "" : "not ")
               << "durable: " << files_ << " files under final names and " << stamped_
               << " stamped ones looked at, " << lost << " of " << acknowledged
               << " acknowledged files lost, " << (continued_ >> 20U) << " MiB continued\n";
}

INSTANTIATE_TEST_SUITE_P(BothWays, PowerCutTrial,
                         testing::Values(Cut{false, ""}, Cut{true,
                                                             "<durable_upload>true</durable_upload>"
                                                             "<checkpoint_mib>1</checkpoint_mib>"}),
                         [](const auto& way) {
                             return way.param.is_durable ? "Durable" : "NotDurable";
                         });

}  // namespace
