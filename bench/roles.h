// What this program does as a child process (`zu_bench --as ROLE ARGUMENT...`): devices that listen
// on a loopback port, print it, and serve until standard input ends; and a client whose memory is
// measured.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench
{

using arguments = std::vector<std::string>;

// "blaster TRAFFIC CYCLES": answers requests; sends that many cycles of the traffic, as fast as
// they are taken, for each start of a stream.
void run_blaster(const arguments& given);

// "feeder BLOCK PIECE SOUND LINKS": answers requests; from the start of a stream on, a link gets a
// block of that many bytes 25 times a second, whole (PIECE 0) or in pieces, and one of SOUND bytes
// 50 times (0: none). LINKS is how many there will be, which take their turns evenly.
void run_feeder(const arguments& given);

// "rtsp-blaster CYCLES", "rtsp-feeder UNIT LINKS": the same by RTSP, H.264 interleaved on the
// connection; the feeder's access units are of that many bytes, and always in pieces.
void run_rtsp_blaster(const arguments& given);
void run_rtsp_feeder(const arguments& given);

// "http TRAFFIC CYCLES": that many cycles of the traffic as one body, for each request.
void run_http(const arguments& given);

// "memory library|bare idle|streaming PORT LINKS": prints the resident KB of each login or link.
void run_memory(const arguments& given);

// Listens, prints the port, and hands each connection to `serve` on a thread of its own. Returns
// when standard input has ended; the process is to end then.
void serve_until_told(const std::function<void(int)>& serve);

int run_role(const arguments& given);

} // namespace bench
