#include "src/command_line/command_line_parser.h"
#include "src/norvane_transmit_service/norvane_transmit_service.h"

namespace {

constexpr std::string_view command_prefix = "/sys/";

}  // namespace

bool NorvaneTransmitService::is_command(std::string_view url) {
    return url.size() > command_prefix.size() && url.starts_with(command_prefix);
}

bool NorvaneTransmitService::handle_http(Kestin::Net::TcpConnectionBase* connection,
                                         const std::string& url) {
    return is_command(url) ? answer_command(connection, url.substr(command_prefix.size()))
                           : answer_file(connection, url);
}

bool NorvaneTransmitService::answer_command(Kestin::Net::TcpConnectionBase* connection,
                                            const std::string& text) {
    std::string command_line;
    make_command_line(text.data(), text.size(), command_line);
    CommandLineParser parser;
    if (!parser.parse(command_line)) {
        return send_status_page(connection, parser.status());
    }
    parser.execute();
    return send_http_document(*connection, parser.shared_result(), parser.status());
}
