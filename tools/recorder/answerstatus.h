#pragma once

#include <optional>
#include <string>

// The "Status" member of the client's JSON answer, read without a JSON library: the recorder
// notes whether an answer reads as an approval itself, so that the note survives a scribe that
// never writes the answer down. Only the top-level member counts; an answer that does not parse
// as far as it has none.
std::optional<long long> answerStatus(const std::string &output);
