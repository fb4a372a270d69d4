#include <string>

#include "fuzz/fuzz_target.h"
#include "fuzz/served_storage.h"
#include "tests/support/conversation.h"

// Framing and dispatch: the first byte says in which pieces the rest arrives at a node. Whole
// requests, and no others, are taken and answered; the storage's neighbour stays.
void run(std::string_view input) {
    static const ServedStorage served;
    static const std::string neighbour = served.root() + "neighbour";
    if (input.empty()) {
        return;
    }
    support::write_file(neighbour, "");
    const auto piece = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);

    support::ScriptedConnection connection;
    require(ServedRoot::service().on_accept(&connection, served.transmit_port()), "it is accepted");
    const bool goes_on = deliver(connection, input, piece != 0 ? piece : input.size());
    const auto conversation = support::read_conversation(input);
    require(goes_on != conversation.is_broken, "an unknown type ends the connection, nothing else");
    if (goes_on) {
        require(connection.received() == input.substr(conversation.length),
                "what is left is the request that isn't whole");
    }
    const std::string fault = support::fault_of_answers(conversation, connection.take_sent(), true);
    require(fault.empty(), fault.c_str());

    ServedRoot::service().on_close(&connection);
    require(std::filesystem::exists(neighbour), "nothing beside the storage is touched");
    served.empty();
}
