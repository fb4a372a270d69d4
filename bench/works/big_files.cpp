#include "bench/works/works.h"

namespace bench {
namespace {

std::string count_of(int streams) {
    return streams == 1 ? ", 1 stream" : ", " + std::to_string(streams) + " streams";
}

Task download(const Stage& stage, const std::string& title, int streams) {
    const std::int64_t size = stage.options().size << 20;
    Task task{.title = title + count_of(streams)};
    task.amount = static_cast<double>(size) * streams;
    task.streams = streams;
    task.work = [size](Client& client, int) {
        client.download("source", size);
    };
    return task;
}

Task upload(const Stage& stage, const std::string& title, int streams) {
    const std::int64_t size = stage.options().size << 20;
    Task task{.title = title + count_of(streams)};
    task.amount = static_cast<double>(size) * streams;
    task.streams = streams;
    task.work = [size](Client& client, int stream) {
        client.upload("target" + std::to_string(stream), size);
    };
    task.clean_up = [&stage, streams] {
        for (int stream = 0; stream < streams; ++stream) {
            stage.workspace().remove("target" + std::to_string(stream));
        }
    };
    return task;
}

}  // namespace

void big_files(Stage& stage) {
    stage.workspace().make_file("source", stage.options().size << 20);
    const std::vector<Contender> contenders = {stage.server(), stage.raw_limit(),
                                               stage.nginx().plain(), stage.vsftpd().plain()};
    for (const int streams : {1, 4}) {
        stage.compare(download(stage, "download", streams), contenders);
        stage.compare(upload(stage, "upload", streams), contenders);
    }
}

void encrypted_files(Stage& stage) {
    stage.workspace().make_file("source", stage.options().size << 20);
    constexpr WireClient::Manner encrypted{.encrypted = true};
    const std::vector<Contender> contenders = {stage.server(encrypted), stage.raw_limit(encrypted),
                                               stage.nginx().over_tls(), stage.sshd().sftp()};
    stage.compare(download(stage, "download, encrypted", 1), contenders);
    stage.compare(upload(stage, "upload, encrypted", 1), contenders);
}

}  // namespace bench
