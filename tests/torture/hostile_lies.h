// The lies, by kind. Those of the first part leave the stream in step: what is true afterwards must
// still arrive. Those of the second part cost the login its connection.
//
// Answers go to ports where nobody waits, to the device's own login, or to a socket of the lie's
// own: what answers can do to others is shown elsewhere (hostile_steering_test.cpp).
#pragma once

#include <climits>
#include <vector>

#include "hostile_device.h"

namespace hostile
{

// ---- the stream stays in step ------------------------------------------------------------------

// A frame whose header comes in two parts, which keeps the receiver spinning in between.
void split_header(lying_device& d, size_t first_part, milliseconds apart);
// A frame whose body comes late and in pieces.
void body_apart(lying_device& d, size_t size, size_t piece, milliseconds apart);
// A frame one byte after another.
void byte_by_byte(lying_device& d, size_t size, milliseconds apart);
// One message of a type and a length, and as much of a body as the length promises.
void message_of_length(lying_device& d, uint32_t type, int32_t len);
bool stays_in_step(uint32_t type, int32_t len);
void flood_of_unknown_types(lying_device& d, int count);
// Answers to requests that were never made; the last one to a socket of the lie's own.
void answers_to_nobody(lying_device& d, int count);
// A request of the login is answered with a body of this length, and returns what the answer holds.
void answer_of_length(lying_device& d, int32_t len);
void frames_without_start(lying_device& d, int count);
void flood_of_heartbeats(lying_device& d, int count);
// Answers steered at the login's own sender, which sends them back to the device.
void answers_to_the_own_sender(lying_device& d, int count);

// ---- the connection is lost --------------------------------------------------------------------

enum class ending { orderly, abrupt };

void end(lying_device& d, ending how);
void garbage(lying_device& d, size_t size);
void urgent_byte(lying_device& d);
void empty_request_to_the_own_sender(lying_device& d);
// Ends the connection after so many bytes of a conversation of a frame, a heartbeat answer, an
// answer and a frame.
void cut_conversation(lying_device& d, size_t at, ending how);
size_t conversation_length();

// ---- at random ---------------------------------------------------------------------------------

enum class aftermath {
    in_step,
    lost,             // and connected again after the pause
    lost_but_spinning // the receiver may be busy with a closed connection for six seconds
};

struct lie {
    const char* name;
    aftermath then;
    void (*tell)(lying_device& d); // with what it leaves open drawn from the device's dice
};

// Those that fit into a run of a second or two.
const std::vector<lie>& quick_lies();

} // namespace hostile
