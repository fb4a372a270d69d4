#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/conversation.h"
#include "tests/support/files.h"
#include "tests/support/folder_state.h"
#include "tests/support/running_server.h"
#include "tests/system/peer.h"

// Conversations with the running server that were valid before they were spoiled, several at a
// time: conversations MESSAGES SECONDS [SEED]. The server has to live on, answer each request at
// most once, change nothing beside its storage and keep no name when the clients have gone. Ends
// with 1 where one of these fails; the seed, which is printed, makes the same conversations again.
namespace {

constexpr int clients_at_once = 8;
constexpr int rounds_between_checks = 20;

class Random {
  public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}
    std::size_t below(std::size_t bound) { return engine_() % bound; }
    bool one_in(std::size_t times) { return below(times) == 0; }
    template <typename Value>
    const Value& any(const std::vector<Value>& values) {
        return values[below(values.size())];
    }

  private:
    std::mt19937_64 engine_;
};

using Messages = std::vector<std::string>;

const std::vector<std::string> names = {"a",    "b",   "a.tcp",      "f/c", "f/d",   "f",
                                        "../a", "f//", "f\\..\\x/y", "",    "f/.tcp"};

// One exchange as a client that means well has it.
Messages valid_exchange(Random& random) {
    const std::string& name = random.any(names);
    const request::Place place{.user_id = random.one_in(4) ? 7U : 0U};
    const bool encrypted = random.one_in(3);
    const std::string bytes(random.below(3000), 'x');
    switch (random.below(6)) {
        case 0:
        case 1: {
            const std::string data = encrypted ? request::enciphered(bytes) : bytes;
            return {request::upload_file_prepare({.path = name,
                                                  .size = static_cast<std::int64_t>(bytes.size()),
                                                  .time = static_cast<int>(random.below(3)),
                                                  .encrypted = encrypted,
                                                  .user_id = place.user_id}),
                    request::upload_file_data(data), request::upload_file_finish()};
        }
        case 2:
            return {request::download_file_prepare(
                        {.path = name, .encrypted = encrypted, .user_id = place.user_id}),
                    request::download_file_data(static_cast<int>(random.below(100))),
                    request::download_file_finish()};
        case 3:
            return {request::create_directory(name, place), request::get_path_content(name, place),
                    request::rename_path(name, random.any(names), place),
                    request::delete_path(name, place)};
        case 4:
            return {request::set_user_information(R"({"user":"ann"})"),
                    request::get_storage_information(), request::check_storage_id(1),
                    request::get_norvane_node_count()};
        default:
            return {request::set_transmit_speed(static_cast<std::uint32_t>(random.below(100000))),
                    request::test_upload_data(bytes),
                    request::test_download_data(static_cast<std::uint16_t>(random.below(5000))),
                    request::cleanup_connection()};
    }
}

void spoil(Messages& messages, Random& random) {
    const std::size_t which = random.below(messages.size());
    std::string& message = messages[which];
    if (message.empty()) {
        return;
    }
    const std::size_t in_header = random.below(std::min<std::size_t>(message.size(), 40));
    switch (random.below(7)) {
        case 0:  // any byte
            message[random.below(message.size())] = static_cast<char>(random.below(256));
            break;
        case 1:  // the type
            message[1] = static_cast<char>(random.below(38));
            break;
        case 2:  // mostly a length
            message[in_header] = static_cast<char>(random.any(std::vector<int>{0, 1, 127, 255}));
            break;
        case 3:
            message.resize(random.below(message.size()));
            break;
        case 4:
            messages.insert(messages.begin() + static_cast<std::ptrdiff_t>(which), message);
            break;
        case 5:
            messages.erase(messages.begin() + static_cast<std::ptrdiff_t>(which));
            break;
        default:
            std::swap(message, messages[random.below(messages.size())]);
    }
}

std::string spoiled_conversation(Random& random) {
    Messages messages;
    do {
        const Messages exchange = valid_exchange(random);
        messages.insert(messages.end(), exchange.begin(), exchange.end());
    } while (!random.one_in(8));
    for (std::size_t times = random.below(4); times > 0 && !messages.empty(); --times) {
        spoil(messages, random);
    }
    std::string bytes;
    for (const std::string& message : messages) {
        bytes += message;
    }
    return bytes;
}

class Trial {
  public:
    explicit Trial(std::uint64_t seed)
        : random_(seed), server_(with_users()), control_(server_.transmit_port()) {
        before_ = state();
    }

    std::uint64_t conversations() const { return conversations_; }
    std::uint64_t messages() const { return messages_; }

    void run(std::uint64_t messages, std::chrono::seconds limit) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (messages_ < messages && std::chrono::steady_clock::now() < end) {
            for (int round = 0; round < rounds_between_checks; ++round) {
                converse();
            }
            check_names();
            check(state() == before_, "something beside the storage changed");
        }
        check(server_.stop() == support::exited_with(0), "the server didn't end in good order");
    }

  private:
    struct Client {
        Client(std::uint16_t port, std::string text)
            : socket(port, Peer::default_limit), bytes(std::move(text)) {}
        support::RawSocket socket;
        std::string bytes;
        std::size_t sent = 0;
    };

    static support::ServerSettings with_users() {
        support::ServerSettings settings;
        settings.use_user_id = true;
        return settings;
    }

    static void check(bool holds, const std::string& fault) {
        if (!holds) {
            throw std::runtime_error(fault);
        }
    }

    support::FolderState state() const {
        return support::state_of(server_.root().path(), {"log", "storage/public"});
    }

    // Some clients at once, whose pieces arrive in turns.
    void converse() {
        std::vector<std::unique_ptr<Client>> clients;
        for (int client = 0; client < clients_at_once; ++client) {
            clients.push_back(
                std::make_unique<Client>(server_.transmit_port(), spoiled_conversation(random_)));
        }
        for (bool more = true; more;) {
            more = false;
            for (const auto& client : clients) {
                more = send_piece(*client) || more;
            }
        }
        for (const auto& client : clients) {
            client->socket.finish_sending();
            check_answers(*client);
        }
    }

    // A server that has ended the connection takes no more.
    bool send_piece(Client& client) {
        const std::size_t size = random_.one_in(2) ? client.bytes.size() : 1 + random_.below(200);
        const std::string piece = client.bytes.substr(client.sent, size);
        client.sent += piece.size();
        return client.socket.send(piece) && client.sent < client.bytes.size();
    }

    void check_answers(Client& client) {
        const auto conversation = support::read_conversation(client.bytes);
        const std::string answers = client.socket.receive_to_end();
        std::string fault =
            support::fault_of_answers(conversation, answers, !conversation.is_broken);
        if (!client.socket.await_close()) {
            fault += ", the server keeps the connection open";
        }
        if (!fault.empty()) {
            support::write_file("build/fuzz/findings/conversation", client.bytes);
            throw std::runtime_error(fault + ": see build/fuzz/findings/conversation");
        }
        ++conversations_;
        messages_ += conversation.requests.size();
    }

    // All clients have gone, and every name can be uploaded, those that no file has too.
    void check_names() {
        const auto end = std::chrono::steady_clock::now() + Peer::default_limit;
        while (control_.node_count() != 1) {
            check(std::chrono::steady_clock::now() < end, "a node outlives its client");
        }
        std::vector<std::string> all = names;
        const std::filesystem::path storage = server_.storage_folder();
        for (const auto& entry : std::filesystem::recursive_directory_iterator(storage)) {
            all.push_back(entry.path().lexically_relative(storage));
            all.push_back(std::filesystem::path(all.back()).replace_extension());
        }
        for (const std::string& name : all) {
            const auto prepared = control_.prepare(request::Upload{.path = name, .time = 99});
            check(prepared.status != message::status_file_in_use, "a name stays claimed: " + name);
            check(control_.ask(request::cleanup_connection()) == message::status_ok, "no cleanup");
        }
        for (const auto& entry : std::filesystem::directory_iterator(storage)) {
            std::filesystem::remove_all(entry);
        }
    }

    Random random_;
    support::RunningServer server_;
    Peer control_;
    support::FolderState before_;
    std::uint64_t conversations_ = 0;
    std::uint64_t messages_ = 0;
};

}  // namespace

int main(int count, char** arguments) {
    const std::vector<std::string> argument(arguments, arguments + count);
    const std::uint64_t messages = count > 1 ? std::stoull(argument[1]) : 1'000'000;
    const std::chrono::seconds limit(count > 2 ? std::stoi(argument[2]) : 60);
    const std::uint64_t seed = count > 3 ? std::stoull(argument[3]) : std::random_device{}();
    std::cout << "seed " << seed << '\n';
    try {
        Trial trial(seed);
        trial.run(messages, limit);
        std::cout << trial.conversations() << " conversations, " << trial.messages()
                  << " whole messages: nothing found\n";
        return EXIT_SUCCESS;
    } catch (const std::exception& fault) {
        std::cout << "FOUND: " << fault.what() << '\n';
        return EXIT_FAILURE;
    }
}
