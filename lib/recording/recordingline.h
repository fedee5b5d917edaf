#pragma once

#include <chrono>
#include <string>
#include <type_traits>
#include <vector>

// One line of a recording, built as compact JSON in the order its members are added. Plain C++,
// for the recorder; the keys are recordingkeys'.
class RecordingLine
{
public:
    explicit RecordingLine(const char *event);

    RecordingLine &add(const char *key, const std::string &text);
    RecordingLine &add(const char *key, bool value);
    template<typename Number,
             std::enable_if_t<std::is_integral_v<Number> && !std::is_same_v<Number, bool>, int> = 0>
    RecordingLine &add(const char *key, Number number)
    {
        return addRaw(key, std::to_string(number));
    }
    RecordingLine &addRaw(const char *key, const std::string &json);
    RecordingLine &addTexts(const char *key, const std::vector<std::string> &texts);

    std::string text() const { return m_text + '}'; }

    // A text as a JSON string: quotes and backslashes escaped, control characters as \u00XX, and
    // bytes that are not UTF-8 as U+FFFD, so that every reader can read the line.
    static std::string jsonString(const std::string &text);
    // The local time as ISO 8601 with milliseconds and the offset, as Qt reads it back.
    static std::string isoTime(std::chrono::system_clock::time_point when);

private:
    std::string m_text;
};
