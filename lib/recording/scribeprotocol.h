#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

// How the recorder speaks to the scribe's service: one request on one connection to a stream
// socket in the recordings folder, a line of text with descriptors passed along (SCM_RIGHTS),
// and a one-byte answer. Plain C++ and POSIX, for the recorder and the scribe both.
//
//   "inpas-scribe 1 sync"                       with the descriptors to flush to disk; answered
//                                               once they are flushed
//   "inpas-scribe 1 output DAY RUN ID"          with an in-memory file that holds a run's
//                                               outputs (see zelnorinpas-scribe); answered as
//                                               soon as it is taken
namespace scribeprotocol {

// In the recordings folder of the processing directory.
inline constexpr const char *socketName = "scribe.sock";
inline constexpr const char *greeting = "inpas-scribe 1";
inline constexpr int mostDescriptors = 8;
// The requests: "sync" with the day file, "output DAY RUN ID" with the run's outputs.
inline constexpr std::string_view syncVerb = "sync";
inline constexpr std::string_view outputVerb = "output";

// The socket's path for a processing directory, or an empty text when it is too long to be one.
std::string socketPath(const std::string &processingDirectory);
// Sends a request to the service at the path and waits at most the time for its answer. False
// when there is no service, it did not answer in time, or it refused.
bool request(const std::string &path, const std::string &line, const std::vector<int> &descriptors,
             std::chrono::milliseconds wait);

// The service's side of one connection: the request's line and the descriptors that came with
// it (the caller closes them). False when what came is not a request.
bool receive(int connection, std::string &line, std::vector<int> &descriptors);

} // namespace scribeprotocol
