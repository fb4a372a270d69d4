#include "src/storage_gate/storage_gate.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "tests/support/scripted_connection.h"
#include "tests/unit/src/served_root.h"

namespace {

using Ticket = ListingLine::Ticket;

class ListingLineTest : public testing::Test {
  protected:
    ListingLineTest() {
        line.set_count(1);
        EXPECT_TRUE(line.enter(first, long_one, now));
        EXPECT_FALSE(line.enter(second, long_one, now));
        EXPECT_FALSE(line.enter(third, long_one, now));
    }

    static constexpr std::size_t long_one = ListingLine::long_listing;

    ListingLine line;
    ListingLine::Clock::time_point now = ListingLine::Clock::now();
    Ticket first = 0;
    Ticket second = 0;
    Ticket third = 0;
};

TEST_F(ListingLineTest, ListingsEnterInTheOrderInWhichTheyCame) {
    line.leave();
    EXPECT_FALSE(line.enter(third, long_one, now));
    EXPECT_FALSE(line.enter(first, long_one, now));
    EXPECT_TRUE(line.enter(second, long_one, now));
    line.leave();
    EXPECT_TRUE(line.enter(third, long_one, now));
    line.leave();
    EXPECT_TRUE(line.enter(first, long_one, now));
}

TEST_F(ListingLineTest, AShortListingDoesntWaitForLongOnes) {
    Ticket fourth = 0;
    Ticket fifth = 0;
    EXPECT_TRUE(line.enter(fourth, 0, now));
    EXPECT_FALSE(line.enter(fifth, 0, now));
    line.leave();
    EXPECT_FALSE(line.enter(second, long_one, now));
    EXPECT_TRUE(line.enter(fifth, 0, now));
    line.leave();
    line.leave();
    EXPECT_FALSE(line.enter(third, long_one, now));
    EXPECT_TRUE(line.enter(second, long_one, now));
}

TEST_F(ListingLineTest, WhoGivesUpOrStaysAwayHoldsNobodyUp) {
    line.leave();
    line.give_up(second);
    EXPECT_TRUE(line.enter(third, long_one, now));
    EXPECT_FALSE(line.enter(first, long_one, now));
    line.leave();
    EXPECT_FALSE(line.enter(second, long_one, now));
    EXPECT_TRUE(line.enter(second, long_one, now + 2 * ListingLine::absence_limit));
}

// Requests for storage 1, in network order; the empty path is the storage itself.
constexpr std::string_view list_storage{"\0\x1c\0\0\0\0\0\1\0\0\0\0\0\0\0\0", 16};
constexpr std::string_view node_count{"\0\x16", 2};
constexpr std::string_view prepare_download{"\0\x06\0\0\0\0\0\1\0\0\0\0\0\1\0\0f", 17};
constexpr std::string_view download_data{"\0\x08\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16};

// A storage all of whose places are taken, as by callbacks that wait for a disk.
class BusyStorage : public testing::Test {
  protected:
    BusyStorage() { EXPECT_TRUE(service.on_accept(&connection, served_.transmit_port())); }
    ~BusyStorage() override {
        while (taken_ > 0) {
            free_place();
        }
    }

    bool take_place() {
        const bool is_taken = storage().callbacks.enter();
        taken_ += is_taken ? 1 : 0;
        return is_taken;
    }
    void take_all_places() {
        while (take_place()) {
        }
    }
    void free_place() {
        storage().callbacks.leave();
        --taken_;
        connection.is_postponed = false;
    }
    StorageWork& storage() { return *service.storage_gate().find(1); }

    ServedRoot served_;
    NorvaneTransmitService& service = ServedRoot::service();
    support::ScriptedConnection connection;

  private:
    int taken_ = 0;
};

TEST_F(BusyStorage, HoldsItsRequestsBackInTheirOrder) {
    take_all_places();
    for (const std::string_view request : {node_count, list_storage, node_count}) {
        connection.feed(request);
    }
    ASSERT_TRUE(service.on_recv(&connection));
    EXPECT_TRUE(connection.is_postponed);
    EXPECT_EQ(connection.received(), std::string(list_storage).append(node_count));
    EXPECT_EQ(connection.take_sent(), (std::string{0, 23, 0, 0, 0, 1}));

    free_place();
    ASSERT_TRUE(service.on_recv(&connection));
    EXPECT_FALSE(connection.is_postponed);
    EXPECT_EQ(connection.received(), "");
    EXPECT_EQ(connection.take_sent().substr(0, 4), (std::string{0, 29, 0, 10}));
    // The place is free again.
    EXPECT_TRUE(take_place());
}

TEST_F(BusyStorage, HoldsBackTheDownloadAndTheEndOfItsConnection) {
    support::write_file(served_.storage() + "f", std::string(64 << 20, 'x'));
    connection.feed(prepare_download);
    connection.feed(download_data);
    ASSERT_TRUE(service.on_recv(&connection));
    connection.take_sent();
    take_all_places();
    ASSERT_TRUE(service.on_send(&connection));
    EXPECT_TRUE(connection.is_postponed);
    EXPECT_EQ(connection.take_sent(), "");
    ASSERT_TRUE(service.on_close(&connection));
    EXPECT_EQ(service.get_node_count(), 1U);

    free_place();
    ASSERT_TRUE(service.on_close(&connection));
    EXPECT_FALSE(connection.is_postponed);
    EXPECT_EQ(service.get_node_count(), 0U);
}

TEST_F(BusyStorage, LeavesTheOthersTheirShare) {
    const std::string other = served_.root() + "other/";
    support::write_file(other + "f", "");
    ASSERT_TRUE(served_.start({.further_items = ServedRoot::item("2", "Other", "true", other)}));
    support::ScriptedConnection next;
    ASSERT_TRUE(service.on_accept(&next, served_.transmit_port()));
    take_all_places();
    std::string list_other(list_storage);
    list_other[7] = 2;
    next.feed(list_other);
    ASSERT_TRUE(service.on_recv(&next));
    EXPECT_FALSE(next.is_postponed);
    EXPECT_EQ(next.take_sent().substr(0, 4), (std::string{0, 29, 0, 10}));
    EXPECT_TRUE(service.on_close(&next));
}

}  // namespace
