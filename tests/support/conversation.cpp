#include "tests/support/conversation.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "src/message/catalogue.h"

namespace support {

namespace {

struct Answer {
    std::uint16_t type = 0;
    std::uint16_t status = 0;
    std::size_t size = 0;
    bool has_data = false;
};

template <message::WireRecord Record>
std::optional<Record> front(std::string_view bytes) {
    Record record{};
    if (bytes.size() < sizeof record) {
        return std::nullopt;
    }
    std::memcpy(&record, bytes.data(), sizeof record);
    message::to_host_order(record);
    return record;
}

template <typename Row>
std::optional<std::size_t> request_size(std::string_view bytes) {
    const auto request = front<typename Row::Request>(bytes);
    if (!request) {
        return std::nullopt;
    }
    std::size_t size = sizeof *request;
    for (const std::uint64_t length : Row::tail_lengths(*request)) {
        size += length;
    }
    return size <= bytes.size() ? std::optional(size) : std::nullopt;
}

template <typename Row>
std::optional<Answer> answer(std::string_view bytes) {
    const auto response = front<typename Row::Response>(bytes);
    if (!response) {
        return std::nullopt;
    }
    Answer answer{response->type, response->status, sizeof *response, false};
    if constexpr (requires { response->data_length; }) {
        answer.size += response->data_length;
        answer.has_data = response->data_length != 0;
    }
    return answer.size <= bytes.size() ? std::optional(answer) : std::nullopt;
}

struct Reader {
    std::optional<std::size_t> (*request_size)(std::string_view bytes);
    std::optional<Answer> (*answer)(std::string_view bytes);
};

template <typename... Rows>
constexpr std::array<Reader, sizeof...(Rows)> readers_of() {
    return {Reader{&request_size<Rows>, &answer<Rows>}...};
}

// At half their types.
constexpr auto readers =
    readers_of<message::UploadFilePrepare, message::UploadFileData, message::UploadFileFinish,
               message::DownloadFilePrepare, message::DownloadFileData, message::DownloadFileFinish,
               message::CreateDirectory, message::DeletePath, message::RenamePath,
               message::SetUserInformation, message::GetStorageInformation,
               message::GetNorvaneNodeCount, message::SetTransmitSpeed, message::CheckStorageId,
               message::GetPathContent, message::TestUploadData, message::TestDownloadData,
               message::CleanupConnection>();
static_assert(readers.size() == message::request_count);

std::optional<std::uint16_t> type_of(std::string_view bytes) {
    const auto record = front<message::TypeOnlyRequest>(bytes);
    return record ? std::optional(record->type) : std::nullopt;
}

bool is_answered_in_turn(std::uint16_t request) {
    return request != message::UploadFileData::type && request != message::DownloadFileData::type;
}

}  // namespace

Conversation read_conversation(std::string_view bytes) {
    Conversation conversation;
    while (const auto type = type_of(bytes)) {
        conversation.is_broken = *type % 2 != 0 || *type / 2U >= readers.size();
        const auto size =
            conversation.is_broken ? std::nullopt : readers[*type / 2U].request_size(bytes);
        if (!size) {
            break;
        }
        conversation.requests.push_back(*type);
        conversation.length += *size;
        bytes.remove_prefix(*size);
    }
    return conversation;
}

std::string fault_of_answers(const Conversation& conversation, std::string_view answers,
                             bool complete) {
    const auto& requests = conversation.requests;
    auto in_turn = std::find_if(requests.begin(), requests.end(), is_answered_in_turn);
    auto blocks = std::count(requests.begin(), requests.end(), message::UploadFileData::type);
    auto streams = std::count(requests.begin(), requests.end(), message::DownloadFileData::type);
    while (const auto type = type_of(answers)) {
        if (*type % 2 == 0 || *type / 2U >= readers.size()) {
            return "no answer has the type " + std::to_string(*type);
        }
        const auto answer = readers[*type / 2U].answer(answers);
        if (!answer) {
            break;
        }
        answers.remove_prefix(answer->size);
        if (*type == message::UploadFileData::response_type) {
            if (answer->status == 0 || blocks-- == 0) {
                return "a block was answered that didn't fail, or twice";
            }
        } else if (*type == message::DownloadFileData::response_type) {
            if (!answer->has_data && streams-- == 0) {
                return "more streams ended than were asked for";
            }
        } else {
            if (in_turn == requests.end() || *type != *in_turn + 1) {
                return "type " + std::to_string(*type) + " came out of turn";
            }
            in_turn = std::find_if(in_turn + 1, requests.end(), is_answered_in_turn);
        }
    }
    if (complete && !answers.empty()) {
        return "the last answer is cut";
    }
    if (complete && in_turn != requests.end()) {
        return "no answer came to type " + std::to_string(*in_turn);
    }
    return "";
}

}  // namespace support
