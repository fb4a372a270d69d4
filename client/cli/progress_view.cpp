#include "client/cli/progress_view.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "client/cli/text.h"

namespace transmit::cli {
namespace {

constexpr std::size_t most_files = 3;
constexpr std::size_t shortest_name = 10;
constexpr std::size_t shortest_bar = 10;
constexpr std::size_t longest_bar = 40;

std::string padded_left(const std::string& text, std::size_t width) {
    const auto used = columns(text);
    return std::string(width > used ? width - used : 0, ' ') + text;
}

std::string padded(std::string text, std::size_t width) {
    const auto used = columns(text);
    return text.append(width > used ? width - used : 0, ' ');
}

std::chrono::seconds whole_seconds(Clock::duration duration) {
    return std::max(std::chrono::round<std::chrono::seconds>(duration),
                    std::chrono::seconds::zero());
}

double share(std::int64_t done, std::int64_t total) {
    return total > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0)
                     : 0;
}

std::string percent(double share) {
    return std::to_string(static_cast<int>(100 * share)) + " %";
}

// "[=====>    ]", `width` columns in all.
std::string bar(double share, std::size_t width) {
    const std::size_t inside = width - 2;
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(inside));
    std::string text(filled, '=');
    if (filled < inside) {
        text += '>';
    }
    return "[" + padded(text, inside) + "]";
}

std::string speed_text(double speed) {
    return shown_size(speed) + "/s";
}

// Nothing while nothing moves.
std::string time_left(std::int64_t bytes, double speed) {
    // Longer than this is no forecast.
    constexpr double most = 100 * 3600;
    const double seconds = speed > 0 ? static_cast<double>(bytes) / speed : most;
    return bytes > 0 && seconds < most
               ? shown_duration(std::chrono::seconds(static_cast<std::int64_t>(seconds) + 1)) +
                     " left"
               : std::string();
}

// " 42 % of 29.1 MiB    3.2 MiB/s  2:05 left".
std::string figures(std::int64_t done, std::int64_t total, double speed) {
    return padded_left(percent(share(done, total)), 5) + " of " +
           padded(shown_size(static_cast<double>(total)), 10) + padded_left(speed_text(speed), 12) +
           "  " + padded(time_left(total - done, speed), 9);
}

std::string few_figures(std::int64_t done, std::int64_t total, double speed) {
    return padded_left(percent(share(done, total)), 5) + padded_left(speed_text(speed), 12);
}

// "NAME  [===>  ]  " and the figures, of which a narrow terminal gets few.
std::string bar_line(const std::string& name, std::int64_t done, std::int64_t total, double speed,
                     std::size_t width) {
    std::string tail = figures(done, total, speed);
    if (width < columns(tail) + shortest_name + shortest_bar + 4) {
        tail = few_figures(done, total, speed);
    }
    const std::size_t used = columns(tail) + 4;
    const std::size_t room = width > used ? width - used : 0;
    const std::size_t bar_width = std::clamp(room / 2, shortest_bar, longest_bar);
    const std::size_t name_width = room > bar_width ? room - bar_width : 0;
    return beginning(padded(ending(name, name_width), name_width) + "  " +
                         bar(share(done, total), bar_width) + "  " + tail,
                     width);
}

std::string moving_line(const BatchProgress& progress, const RunningFile& file,
                        Clock::time_point now, std::size_t width) {
    return bar_line(shown(progress.name(file.file)), file.done, file.total,
                    file.speed.bytes_per_second(now), width);
}

// The name gives way to the reason, which tells more, but keeps a third of the line.
std::string hindered_line(const BatchProgress& progress, const RunningFile& file,
                          Clock::time_point now, std::size_t width) {
    const std::string reason = hindrance_text(*file.hindrance, now);
    const std::size_t name_width =
        std::max(width / 3, width > columns(reason) + 2 ? width - columns(reason) - 2 : 0);
    return beginning(ending(shown(progress.name(file.file)), name_width) + ": " + reason, width);
}

BarLine file_line(const BatchProgress& progress, const RunningFile& file, Clock::time_point now,
                  std::size_t width) {
    return file.hindrance ? BarLine{hindered_line(progress, file, now, width), true}
                          : BarLine{moving_line(progress, file, now, width)};
}

// What a line of the whole begins with.
std::string label(const BatchProgress& progress) {
    if (progress.files() == 1) {
        return shown(progress.name(0));
    }
    std::string text =
        std::to_string(progress.finished()) + " of " + counted(progress.files(), "file");
    if (progress.failed() > 0) {
        text += ", " + std::to_string(progress.failed()) + " failed";
    }
    return text;
}

std::string total_line(const BatchProgress& progress, Clock::time_point now, std::size_t width) {
    return bar_line(label(progress), progress.done(), progress.total(),
                    progress.bytes_per_second(now), width);
}

}  // namespace

std::vector<BarLine> progress_bars(const BatchProgress& progress, Clock::time_point now,
                                   std::size_t width) {
    std::vector<BarLine> lines;
    for (const RunningFile& file : progress.running()) {
        if (lines.size() == most_files) {
            break;
        }
        lines.push_back(file_line(progress, file, now, width));
    }
    if (progress.files() > 1 || lines.empty()) {
        lines.push_back({total_line(progress, now, width)});
    }
    return lines;
}

std::string progress_line(const BatchProgress& progress, Clock::time_point now) {
    const double speed = progress.bytes_per_second(now);
    std::string line = label(progress) + ", " + percent(share(progress.done(), progress.total())) +
                       " of " + shown_size(static_cast<double>(progress.total())) + ", " +
                       speed_text(speed);
    if (const auto left = time_left(progress.total() - progress.done(), speed); !left.empty()) {
        line += ", " + left;
    }
    for (const RunningFile& file : progress.running()) {
        if (file.hindrance) {
            line += "; " + shown(progress.name(file.file)) + ": " +
                    hindrance_text(*file.hindrance, now);
            break;
        }
    }
    return line;
}

std::string hindrance_text(const Hindrance& hindrance, Clock::time_point now) {
    std::string text = shown(hindrance.reason);
    if (hindrance.since) {
        text += " for " + shown_duration(whole_seconds(now - *hindrance.since));
    }
    if (hindrance.next_attempt) {
        const auto pause = whole_seconds(*hindrance.next_attempt - now).count();
        text +=
            pause > 0 ? "; trying again in " + std::to_string(pause) + " s" : "; trying again now";
    }
    if (hindrance.last_attempt) {
        text += " (" + shown_duration(whole_seconds(*hindrance.last_attempt - now)) + " left)";
    }
    return text;
}

}  // namespace transmit::cli
