#include "bench/works/works.h"

namespace bench {
namespace {

constexpr int file_count = 2000;  // of each connection
constexpr std::int64_t file_size = 4096;

std::string title_of(const std::string& direction, int connections, const char* manner) {
    return direction + " of 4 KiB" + manner + ", " + std::to_string(connections) +
           (connections == 1 ? " connection" : " connections");
}

Task downloads(int connections, const char* manner) {
    Task task{.title = title_of("download", connections, manner), .unit = operations};
    task.amount = static_cast<double>(file_count) * connections;
    task.streams = connections;
    task.work = [](Client& client, int) {
        client.download_all({"small", file_count, file_size});
    };
    return task;
}

std::string upload_folder(int connection) {
    return "uploads/" + std::to_string(connection);
}

void make_upload_folders(const Workspace& workspace, int connections) {
    workspace.remove("uploads");
    workspace.make_folder("uploads");
    for (int connection = 0; connection < connections; ++connection) {
        workspace.make_folder(upload_folder(connection));
    }
}

Task uploads(const Workspace& workspace, int connections, const char* manner) {
    Task task{.title = title_of("upload", connections, manner), .unit = operations};
    task.amount = static_cast<double>(file_count) * connections;
    task.streams = connections;
    task.work = [](Client& client, int connection) {
        client.upload_all({upload_folder(connection), file_count, file_size});
    };
    task.clean_up = [&workspace, connections] {
        make_upload_folders(workspace, connections);
    };
    return task;
}

void both_ways(Stage& stage, const std::vector<Contender>& contenders, const char* manner) {
    stage.workspace().make_files({"small", file_count, file_size});
    for (const int connections : {1, 8}) {
        make_upload_folders(stage.workspace(), connections);
        stage.compare(downloads(connections, manner), contenders);
        stage.compare(uploads(stage.workspace(), connections, manner), contenders);
    }
}

}  // namespace

void small_files(Stage& stage) {
    both_ways(stage,
              {stage.server(), stage.raw_limit(), stage.vsftpd().plain(), stage.rsync().plain()},
              "");
}

void files_ahead(Stage& stage) {
    constexpr WireClient::Manner ahead{.ahead = true};
    both_ways(stage, {stage.server(ahead), stage.raw_limit(ahead), stage.nginx().plain()},
              " sent ahead");
}

}  // namespace bench
