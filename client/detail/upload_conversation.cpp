#include "client/detail/upload_conversation.h"

#include <utility>

#include "client/detail/attempts.h"
#include "client/detail/remote_file.h"
#include "client/status_text.h"
#include "src/message/status.h"

namespace transmit::detail {
namespace {

// Rounds of preparing and checking, before what is stored is taken for another client's play.
constexpr int most_rounds = 4;

Error differs(const std::string& what) {
    return {ErrorKind::file_changed, 0, what + " differs from the source"};
}

}  // namespace

UploadConversation::UploadConversation(Worker& worker, RemoteFolders& folders,
                                       const UploadNames& names, UploadSender& sender,
                                       SourceFile source, const UploadJob& job)
    : worker_(worker),
      run_(worker.run),
      folders_(folders),
      names_(names),
      sender_(sender),
      source_(std::move(source)),
      target_(job.target),
      name_in_folder_(job.name_in_folder),
      watch_(worker) {
}

Result<TransferReport> UploadConversation::run() {
    return run_attempts(
        worker_, [this](Connection& connection) { return attempt(connection); },
        [this](const Error& reason) { return start_over(reason); });
}

Result<void> UploadConversation::start_over(const Error& reason) {
    watch_.starts_over(reason.text);
    auto source = source_.reopened();
    if (!source) {
        return source.error();
    }
    source_ = *std::move(source);
    (owns_part_ || aside_ ? suspect_ : evades_) = true;
    is_whole_ = false;
    return {};
}

Result<TransferReport> UploadConversation::attempt(Connection& connection) {
    const auto content = look(connection);
    if (!content) {
        return content.error();
    }
    const Entry* const there = (*content)->find(split(target_.path).name);
    const auto& options = run_.options();
    UploadWay way = plan_upload(there, source_.stamp(), options.in_place,
                                is_forced() && !has_arrived(**content));
    if (way == UploadWay::no_folder) {
        return attempt_in_folder(connection);
    }
    if (!is_whole_ && is_compared(there)) {
        const auto same = same_content(connection);
        if (!same) {
            return same.error();
        }
        if (*same) {
            return TransferReport{
                .size = source_.stamp().size, .already_there = true, .verified = true};
        }
        way = UploadWay::aside;
    }
    if (way == UploadWay::none) {
        return arrived(connection);
    }
    if (options.dry_run) {
        return TransferReport{.size = source_.stamp().size};
    }
    if (way == UploadWay::straight && !evades_) {
        const auto safe = straight_is_safe(connection, **content);
        if (!safe) {
            return safe.error();
        }
        evades_ = !*safe;
    }
    if (evades_) {
        way = UploadWay::aside;
    }
    auto uploaded = way == UploadWay::aside ? upload_aside(connection, **content)
                                            : upload_to(connection, target_, **content);
    return uploaded ? arrived(connection) : uploaded.error();
}

Result<TransferReport> UploadConversation::attempt_in_folder(Connection& connection) {
    if (name_in_folder_.empty()) {
        return refusal(message::status_path_is_directory);
    }
    target_.path += '/' + std::exchange(name_in_folder_, {});
    looked_ = false;
    worker_.run.tell(
        [&](TransferObserver& observer) { observer.placed(worker_.file, target_.path); });
    return attempt(connection);
}

// What all files of a batch share is good for the first look; after a break all may be different.
Result<UploadConversation::Content> UploadConversation::look(Connection& connection) {
    if (!looked_ && is_told_by_listings(target_.path)) {
        looked_ = true;
        return folders_.parent(connection, target_);
    }
    auto fresh = list_parent(connection, target_);
    if (!fresh) {
        return fresh.error();
    }
    if (!is_told_by_listings(target_.path)) {
        const std::string name(split(target_.path).name);
        const auto stamp = connection.download_file_prepare(target_, false);
        if (stamp) {
            fresh->add({false, name, stamp->size, stamp->time});
        } else if (stamp.error().status == message::status_path_is_directory) {
            fresh->add({true, name});
        } else if (stamp.error().kind != ErrorKind::refused) {
            return stamp.error();
        }
    }
    return Content(std::make_shared<FolderContent>(*std::move(fresh)));
}

Result<void> UploadConversation::upload_aside(Connection& connection,
                                              const FolderContent& content) {
    aside_ = true;
    const RemotePath side = at(names_.side_path(target_.path));
    if (auto checked = check_side(connection, side, content); !checked) {
        return checked;
    }
    if (auto uploaded = upload_to(connection, side, content); !uploaded) {
        return uploaded;
    }
    is_whole_ = true;
    return connection.rename_path(side, target_.path);
}

Result<void> UploadConversation::upload_to(Connection& connection, const RemotePath& place,
                                           const FolderContent& content) {
    const auto start = begins_with_nothing(place, content) ? begin_ahead(connection, place)
                                                           : begin(connection, place);
    if (!start) {
        return start.error();
    }
    owns_part_ = place.path == target_.path;
    watch_.goes_on(start->complete ? source_.stamp().size : start->offset, source_.stamp().size);
    if (!start->complete) {
        if (auto sent = sender_.send(connection, source_, start->offset, watch_); !sent) {
            return disown(std::move(sent));
        }
    }
    is_whole_ = place.path == target_.path;
    return start->complete ? Result<void>() : disown(connection.upload_file_finish());
}

// A change that isn't the source's is one of what the server had: that is of somebody else.
Result<void> UploadConversation::disown(Result<void> outcome) {
    if (!outcome && outcome.error().kind == ErrorKind::file_changed && source_.unchanged()) {
        owns_part_ = false;
    }
    return outcome;
}

// After a break: whether all that was to happen did, though its last answer was lost.
bool UploadConversation::has_arrived(const FolderContent& content) const {
    return is_whole_ && !content.find(split(names_.side_path(target_.path)).name);
}

// Whether the bare conversation destroys nothing: what bears the name of the target's temporary
// file is the beginning of the source, so that its bytes come with it. A prepare takes a temporary
// file of the full size for the whole file, whatever suffix the server gives it.
Result<bool> UploadConversation::straight_is_safe(Connection& connection,
                                                  const FolderContent& content) {
    if (names_.endangers(target_.path)) {
        return false;
    }
    const FileStamp stamp = source_.stamp();
    const auto [folder, name] = split(target_.path);
    std::vector<Entry> found = content.longer(name, stamp);
    const Entry* const temporary =
        names_.suffix().empty() ? nullptr : content.find(std::string(name) + names_.suffix());
    if (temporary) {
        const bool is_usable = temporary->size > 0 || temporary->time == stamp.time || owns_part_;
        if (temporary->is_folder || temporary->size > stamp.size || !is_usable) {
            return false;
        }
        found.push_back(*temporary);
    }
    for (const Entry& entry : found) {
        auto good = begins_like(connection, run_, at(std::string(folder) + entry.name), entry.size,
                                source_);
        if (!good || !*good) {
            return owns_part_ && good ? Result<bool>(true) : good;
        }
    }
    return true;
}

// What bears a side name is of this program: it may be whole already, or is thrown away.
Result<void> UploadConversation::check_side(Connection& connection, const RemotePath& side,
                                            const FolderContent& content) {
    const std::string name(split(side.path).name);
    const std::string folder(split(side.path).folder);
    for (const Entry& entry : content.longer(name, source_.stamp())) {
        const auto good =
            begins_like(connection, run_, at(folder + entry.name), source_.stamp().size, source_);
        if (!good) {
            return good.error();
        }
        if (!*good) {
            suspect();
        }
    }
    const Entry* const there = content.find(name);
    if (!there || FileStamp{there->size, there->time} != source_.stamp()) {
        return {};
    }
    const auto good = begins_like(connection, run_, side, source_.stamp().size, source_);
    if (!good) {
        return good.error();
    }
    return *good ? Result<void>() : connection.delete_path(side);
}

// Only as long as nothing has proved other than it was listed.
bool UploadConversation::begins_with_nothing(const RemotePath& place,
                                             const FolderContent& content) const {
    const auto name = split(place.path).name;
    const Entry* const there = content.find(name);
    return !ahead_ && !suspect_ && is_told_by_listings(place.path) &&
           !content.has_longer(name, source_.stamp().size) &&
           !(there && FileStamp{there->size, there->time} == source_.stamp());
}

Result<UploadStart> UploadConversation::begin_ahead(Connection& connection,
                                                    const RemotePath& place) {
    ahead_ = true;
    if (auto sent = connection.upload_file_begin(place, source_.stamp(), run_.options().encrypted);
        !sent) {
        return sent.error();
    }
    return UploadStart{false, 0};
}

Result<UploadStart> UploadConversation::begin(Connection& connection, const RemotePath& place) {
    std::int64_t checked = 0;
    for (int round = 0; round < most_rounds; ++round) {
        if (suspect_) {
            if (auto discarded = discard_stored_part(connection, place); !discarded) {
                return discarded.error();
            }
        }
        auto start =
            connection.upload_file_prepare(place, source_.stamp(), run_.options().encrypted);
        if (!start || start->complete || start->offset == checked) {
            return start;
        }
        const auto good = stored_part_is_good(connection, place, start->offset);
        if (!good) {
            return good.error();
        }
        if (*good) {
            checked = start->offset;
        } else if (place.path == target_.path && !owns_part_) {
            return differs("what the server had stored");
        } else {
            suspect();
        }
    }
    return refusal(message::status_file_in_use);
}

// The upload that has begun ends first, so that the part lies still. The name of the part is not
// told: it is that of the files beside its target which has its size and time.
Result<bool> UploadConversation::stored_part_is_good(Connection& connection,
                                                     const RemotePath& place, std::int64_t size) {
    if (auto ended = connection.cleanup_connection(); !ended) {
        return ended.error();
    }
    const auto content = list_parent(connection, place);
    if (!content) {
        return content.error();
    }
    const auto [folder, name] = split(place.path);
    const auto found = content->longer(name, {size, source_.stamp().time});
    if (found.empty()) {
        return begins_like(connection, run_, at(place.path + names_.suffix()), size, source_);
    }
    for (const Entry& entry : found) {
        auto good =
            begins_like(connection, run_, at(std::string(folder) + entry.name), size, source_);
        if (!good || !*good) {
            return good;
        }
    }
    return true;
}

// The server throws a part away when a file of another time is announced, whatever its name is. An
// empty file has no part, and would be finished.
Result<void> UploadConversation::discard_stored_part(Connection& connection,
                                                     const RemotePath& place) {
    if (source_.stamp().size == 0) {
        suspect_ = false;
        return {};
    }
    const FileStamp other{source_.stamp().size, source_.stamp().time + 1};
    if (const auto start = connection.upload_file_prepare(place, other, false); !start) {
        return start.error();
    }
    suspect_ = false;
    return connection.cleanup_connection();
}

Result<TransferReport> UploadConversation::arrived(Connection& connection) {
    TransferReport report = watch_.report();
    report.size = source_.stamp().size;
    report.already_there = !is_whole_;
    if (!run_.options().verify || report.already_there) {
        return report;
    }
    const auto same = same_content(connection);
    if (!same) {
        return same.error();
    }
    if (!*same) {
        resend_ = true;
        return differs("the file that was read back");
    }
    report.verified = true;
    return report;
}

// Whether what lies at the target is compared before it is taken for the source, or for another
// file.
bool UploadConversation::is_compared(const Entry* there) const {
    const auto& options = run_.options();
    const FileStamp stamp = source_.stamp();
    if (!there || there->is_folder || is_forced() || there->size != stamp.size) {
        return false;
    }
    return options.checksum ||
           (there->time == stamp.time && (options.verify || may_still_change(stamp.time)));
}

Result<bool> UploadConversation::same_content(Connection& connection) {
    const auto wanted = source_.sha256([this] { return run_.cancelled(); });
    const auto found = wanted ? remote_sha256(connection, run_, target_) : wanted;
    if (!found) {
        return found.error();
    }
    return *found == *wanted;
}

void UploadConversation::suspect() {
    suspect_ = true;
    watch_.starts_over(differs("what the server had stored").text);
}

RemotePath UploadConversation::at(std::string path) const {
    return {target_.storage_id, target_.user_id, std::move(path)};
}

}  // namespace transmit::detail
