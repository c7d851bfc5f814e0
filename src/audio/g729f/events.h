// What the decoder makes of events before the base class sees them: where a stream begins and ends,
// what gaps mean, seeks in raw streams, the pipeline's latency.
//
// Both take the event, and return what is left for the base class, or null. They are called without
// any lock of the element's.
#pragma once

#include "src/audio/g729f/dec.h"

GstEvent* kel_g729f_take_sink_event(KelG729fDec* dec, GstEvent* event);
GstEvent* kel_g729f_take_src_event(KelG729fDec* dec, GstEvent* event);
