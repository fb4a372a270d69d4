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

std::vector<Contender> plain_contenders(Stage& stage) {
    return {stage.server(), stage.raw_limit(), stage.nginx().plain(), stage.vsftpd().plain()};
}

std::vector<Contender> encrypted_contenders(Stage& stage) {
    constexpr WireClient::Manner encrypted{.encrypted = true};
    return {stage.server(encrypted), stage.raw_limit(encrypted), stage.nginx().over_tls(),
            stage.sshd().sftp()};
}

}  // namespace

void downloads(Stage& stage) {
    stage.workspace().make_file("source", stage.options().size << 20);
    const auto contenders = plain_contenders(stage);
    stage.compare(download(stage, "download", 1), contenders);
    stage.compare(download(stage, "download", 4), contenders);
}

void uploads(Stage& stage) {
    const auto contenders = plain_contenders(stage);
    stage.compare(upload(stage, "upload", 1), contenders);
    stage.compare(upload(stage, "upload", 4), contenders);
}

void encrypted_downloads(Stage& stage) {
    stage.workspace().make_file("source", stage.options().size << 20);
    stage.compare(download(stage, "download, encrypted", 1), encrypted_contenders(stage));
}

// The sftp program uploads the source.
void encrypted_uploads(Stage& stage) {
    stage.workspace().make_file("source", stage.options().size << 20);
    stage.compare(upload(stage, "upload, encrypted", 1), encrypted_contenders(stage));
}

}  // namespace bench
