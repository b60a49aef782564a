// What goes into a session, as a record keeps it. input_to_record copies what the pointers lead to and is called on the
// thread that acts; play is called on the host's thread.
#pragma once

#include "host/lib/session.h"
#include "record.pb.h"

namespace zelhost {

// `input` is what the session tells of an act of the host; its pointers are valid during the call.
record::Input input_to_record(const Input& input);

// Does again what a record says. What the plug-in answers is not looked at: its log and what it gives out tell enough.
// Throws Failure when the record asks for something that no session does.
void play(const record::Input& input, Session& session);

}  // namespace zelhost
