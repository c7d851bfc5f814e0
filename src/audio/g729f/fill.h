// The element's audio for which no packet came, with `plc`: made and pushed as timeline.h asks for.
//
// All are called with the base class's stream lock held; all but kel_g729f_fill_buffer without the
// element's lock.
#pragma once

#include "src/audio/g729f/dec.h"
#include "src/audio/g729f/timeline.h"

// Times as the time line has them. Those that no stream lasts for count as unknown.
Time kel_g729f_time(GstClockTime time);

// Enters a packet or a gap (an input buffer that the base class holds) into the time line, gives it
// the timestamp of the audio to come out, and pushes what is missing before it or because of it.
// `cut` receives the bytes to be taken off the packet's audio.
GstFlowReturn kel_g729f_fill_before(KelG729fDec* dec, GstBuffer* packet, gsize frames,
                                    bool descriptor, gsize* cut);
GstFlowReturn kel_g729f_fill_gap(KelG729fDec* dec, GstBuffer* gap);

// Pushes what has been told of before the stream ended.
void kel_g729f_fill_rest(KelG729fDec* dec);

// Makes the next frames, a buffer full; false when it cannot be written to.
bool kel_g729f_fill_buffer(KelG729fDec* dec, GstBuffer* buffer);

// Hands the base class a frame for which it had no packet, with a timestamp if that is known. It
// warns of each; the element takes such warnings off the bus.
GstFlowReturn kel_g729f_finish_noise(KelG729fDec* dec, GstBuffer* noise, Time begin);

GST_DEBUG_CATEGORY_EXTERN(g729fdec);
