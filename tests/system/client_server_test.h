#pragma once

#include <map>
#include <string>
#include <vector>

#include "client/batch.h"
#include "tests/support/files.h"
#include "tests/support/temporary_folder.h"
#include "tests/system/server_test.h"
#include "tests/system/stored_file.h"

// What a batch told, in counts and texts.
class RecordingObserver : public transmit::TransferObserver {
  public:
    void retrying(std::size_t, const transmit::Error& reason, std::chrono::milliseconds,
                  std::chrono::milliseconds) override {
        retries.push_back(reason);
    }
    void started_over(std::size_t, const std::string& reason) override {
        starts_over.push_back(reason);
    }
    void done(std::size_t, const transmit::TransferReport& report) override {
        reports.push_back(report);
    }

    std::vector<transmit::Error> retries;
    std::vector<std::string> starts_over;
    std::vector<transmit::TransferReport> reports;
};

// The name under which the client works on a file beside it: ".part", ".info" and, on the server,
// ".new".
inline std::string work_name(const std::string& name, const std::string& ending) {
    return ".transmit-" + support::sha256(name).substr(0, 32) + ending;
}

// The client library against a real server: one storage, and a local folder.
class ClientServerTest : public testing::Test {
  protected:
    explicit ClientServerTest(const support::ServerSettings& settings = {}) : server(settings) {}

    std::string in_storage(const std::string& name) const { return server.storage_folder() + name; }

    // Impatient, so that attempts follow each other quickly.
    static transmit::Server reached_by(std::uint16_t port) {
        transmit::Server reached;
        reached.endpoint.port = port;
        reached.retry.first_pause = std::chrono::milliseconds(1);
        reached.retry.longest_pause = std::chrono::milliseconds(50);
        reached.retry.time_limit = std::chrono::seconds(60);
        return reached;
    }

    transmit::TransferSummary put(const std::string& from, const std::string& to,
                                  transmit::TransferObserver& watch) const {
        transmit::UploadBatch batch;
        batch.files.push_back({from, {.path = to}, {}});
        return transmit::upload_files(target, batch, options, watch);
    }
    transmit::TransferSummary put(const std::string& from, const std::string& to) {
        return put(from, to, observer);
    }

    transmit::TransferSummary get(const std::string& from, const std::string& to,
                                  transmit::TransferObserver& watch) const {
        transmit::DownloadBatch batch;
        batch.files.push_back({{.path = from}, to, {}, {}});
        return transmit::download_files(target, batch, options, watch);
    }
    transmit::TransferSummary get(const std::string& from, const std::string& to) {
        return get(from, to, observer);
    }

    support::RunningServer server;
    transmit::Server target = reached_by(server.transmit_port());
    support::TemporaryFolder folder;
    const std::string local = folder.path() + "local";
    transmit::TransferOptions options;
    RecordingObserver observer;
};
