#include <charconv>
#include <set>

#include "fuzz/fuzz_target.h"
#include "fuzz/served_storage.h"

namespace {

constexpr const char* secret = "outside of the pages";

class Pages : public ServedStorage {
  public:
    Pages() {
        support::write_file(root() + "www/main.html", "<html></html>");
        support::write_file(root() + "www/a/b.js", "1");
        support::write_file(root() + "secret", secret);
    }
};

// Takes the answer at the front away.
void check_answer(std::string_view& answers) {
    static const std::set<std::string_view> statuses = {
        "200 OK", "400 Bad Request", "403 Forbidden", "404 Not Found", "412 Precondition Failed"};
    constexpr std::string_view version = "HTTP/1.1 ";
    constexpr std::string_view length_field = "Content-Length: ";
    require(answers.starts_with(version), "an answer begins with its version");
    const auto end = answers.find("\r\n\r\n");
    require(end != std::string_view::npos, "an answer has a head");
    const std::string_view head = answers.substr(version.size(), end - version.size());
    require(statuses.contains(head.substr(0, head.find("\r\n"))), "an answer has a known status");
    const auto field = head.find(length_field);
    require(field != std::string_view::npos, "an answer tells its length");
    std::size_t length = 0;
    std::from_chars(head.data() + field + length_field.size(), head.data() + head.size(), length);
    require(answers.size() >= end + 4 + length, "an answer is whole");
    answers.remove_prefix(end + 4 + length);
}

}  // namespace

// HTTP from the wire to the answer: the first byte says in which pieces the rest arrives. Answers
// are whole, and only pages are told.
void run(std::string_view input) {
    static const Pages pages;
    if (input.empty()) {
        return;
    }
    const auto piece = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    support::ScriptedConnection connection;
    require(ServedRoot::service().on_accept(&connection, pages.command_port()), "it is accepted");
    deliver(connection, input, piece != 0 ? piece : input.size());
    const std::string sent = connection.take_sent();
    require(sent.find(secret) == std::string::npos, "what isn't below the pages isn't told");
    std::string_view answers = sent;
    while (!answers.empty()) {
        check_answer(answers);
    }
    ServedRoot::service().on_close(&connection);
}
