#include "recordingline.h"

#include "recordingkeys.h"

#include <cstdio>
#include <ctime>

RecordingLine::RecordingLine(const char *event)
    : m_text("{\"" + std::string(recordingkeys::event) + "\":" + jsonString(event))
{}

RecordingLine &RecordingLine::addRaw(const char *key, const std::string &json)
{
    m_text += ",\"";
    m_text += key;
    m_text += "\":";
    m_text += json;
    return *this;
}

RecordingLine &RecordingLine::add(const char *key, const std::string &text)
{
    return addRaw(key, jsonString(text));
}

RecordingLine &RecordingLine::add(const char *key, bool value)
{
    return addRaw(key, value ? "true" : "false");
}

RecordingLine &RecordingLine::addTexts(const char *key, const std::vector<std::string> &texts)
{
    std::string list = "[";
    for (size_t i = 0; i < texts.size(); ++i)
        list += (i > 0 ? "," : "") + jsonString(texts[i]);
    return addRaw(key, list + ']');
}

std::string RecordingLine::jsonString(const std::string &text)
{
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
            ++i;
        } else if (c < 0x20 || c == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", c);
            out += escape;
            ++i;
        } else if (c < 0x80) {
            out += char(c);
            ++i;
        } else {
            const size_t length = c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 ? 2 : 0;
            bool valid = length > 0 && c < 0xf5 && i + length <= text.size();
            for (size_t k = 1; valid && k < length; ++k)
                valid = (static_cast<unsigned char>(text[i + k]) & 0xc0) == 0x80;
            if (valid) {
                out.append(text, i, length);
                i += length;
            } else {
                out += "\xef\xbf\xbd";
                ++i;
            }
        }
    }
    return out + '"';
}

std::string RecordingLine::isoTime(std::chrono::system_clock::time_point when)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count() %
        1000;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char date[32];
    char zone[8];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(zone, sizeof zone, "%z", &local);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03d%.3s:%s", date, int(ms), zone, zone + 3);
    return text;
}
