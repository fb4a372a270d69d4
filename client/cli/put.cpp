#include <functional>

#include "client/cli/batch.h"
#include "client/cli/commands.h"
#include "client/cli/names.h"
#include "client/cli/progress_line.h"
#include "client/cli/server.h"
#include "client/cli/terminal.h"
#include "client/upload.h"
#include "src/message/status.h"

namespace transmit::cli {
namespace {

// Where uploads go: a folder in which they keep their names, or a name that may prove a folder.
struct Target {
    std::string path;
    bool is_folder;
};

class Put {
  public:
    Put(const Common& common, bool encrypted, Target target)
        : common_(common),
          encrypted_(encrypted),
          target_(std::move(target)),
          server_(connect_stubbornly(common)) {}

    ExitCode operator()(const std::string& file) {
        auto sent = target_.is_folder ? send_into_folder(file) : send(file, target_.path);
        if (!sent && sent.error().status == message::status_path_is_directory &&
            !target_.is_folder) {
            sent = send_into_folder(file);
        }
        if (!sent) {
            complain(file, sent.error());
            return exit_code(sent.error());
        }
        return ExitCode::done;
    }

  private:
    Result<TransferReport> send_into_folder(const std::string& file) {
        const std::string name = local_name(file);
        if (name.empty()) {
            return Error{ErrorKind::invalid_request, 0,
                         "this is no name for the server, which takes \\ for a separator; give the "
                         "target's name"};
        }
        return send(file, joined(target_.path, name));
    }

    Result<TransferReport> send(const std::string& file, const std::string& path) {
        ProgressLine line(file, common_.quiet);
        return upload_file(server_, {file, common_.at(path), encrypted_},
                           [&](const Progress& progress) { line.show(progress); });
    }

    const Common& common_;
    bool encrypted_;
    Target target_;
    RetryingConnection server_;
};

}  // namespace

ExitCode put(const Common& common, const TransferOptions& options) {
    std::vector<std::string> files = options.paths;
    Target target{"", true};
    if (files.size() > 1) {
        target.path = files.back();
        files.pop_back();
        target.is_folder =
            files.size() > 1 || remote_name(target.path).empty() || ends_in_separator(target.path);
    }
    Put put_one(common, options.encrypted, target);
    return for_each(files, std::ref(put_one));
}

}  // namespace transmit::cli
