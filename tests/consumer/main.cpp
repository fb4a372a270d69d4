#include <iostream>

#include "client/batch.h"
#include "client/command_port.h"
#include "client/link_test.h"
#include "client/listing.h"
#include "client/remote_tree.h"
#include "client/status_text.h"

// Fetches what isn't there from a server that isn't there either: ends well if the library says so.
int main() {
    transmit::Server server;
    server.endpoint.port = 1;
    transmit::DownloadBatch batch;
    batch.files.push_back({{.path = "nothing"}, "nothing", {}, {}});
    transmit::TransferObserver unwatched;
    const auto summary = transmit::download_files(server, batch, {}, unwatched);
    if (!summary.stopped) {
        return 1;
    }
    std::cout << summary.stopped->text << '\n';
    return summary.stopped->kind == transmit::ErrorKind::no_connection ? 0 : 1;
}
