#pragma once

#include <bit>
#include <concepts>
#include <type_traits>

#include "kestin_base/byte_stream.h"

namespace message {

// A record as it stands on the wire: a plain struct whose gaps are fields of their own, so that no
// byte of it is left to the compiler, and which shows its integers, in order, to a visitor.
template <typename Record>
concept WireRecord = std::is_trivially_copyable_v<Record> &&
    std::has_unique_object_representations_v<Record> && requires(Record record) {
    record.type;
    record.visit_integers([](auto&...) {});
};

// Turn every integer of a record to host order after reading, to network order before sending, in
// place.
template <WireRecord Record>
void to_host_order(Record& record) {
    record.visit_integers([](auto&... integer) {
        (Kestin::Base::ByteStream::net_to_host(&integer, sizeof integer), ...);
    });
}

template <WireRecord Record>
void to_network_order(Record& record) {
    record.visit_integers([](auto&... integer) {
        (Kestin::Base::ByteStream::host_to_net(&integer, sizeof integer), ...);
    });
}

}  // namespace message
