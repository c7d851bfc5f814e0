// The decoder's comfort-noise thread.
//
// One thread per running element, "dtx-thread". From a decoded silence descriptor to the next
// input buffer it decodes an untransmitted frame whenever the time line (timeline.h) says that one
// is due, every 10 ms of the element's clock, and pushes it. It rests while the element is not
// playing; what it would have made then is not made up for.
//
// Locks: the base class's stream lock first, the element's lock second. The element's lock guards
// the flags, clock_id, the time line and the thread's use of the codec; it is not held while
// waiting for the clock, while allocating, or while a buffer is unmapped and finished.
//
// The thread takes the stream lock for a whole packet, from the last look at dtx_active to the
// push. A packet therefore is out before the streaming thread handles the next buffer, or never
// made: noise cannot overtake the speech that ended it, nor come after a flush.
#pragma once

#include "src/audio/g729f/dec.h"
#include "src/audio/g729f/timeline.h"

// The thread; `data` is the element.
gpointer kel_g729f_dtx_thread_main(gpointer data);

// One run of comfort noise. Called with the element's lock, returns with it.
void kel_g729f_dtx_func(KelG729fDec* dec);

// Called without the element's lock. After kel_g729f_dtx_stop, called with the stream lock held,
// the thread does not touch the codec before the next start. kel_g729f_dtx_cancel is the same for
// what is no buffer; it returns whether noise was being made.
void kel_g729f_dtx_start(KelG729fDec* dec);
void kel_g729f_dtx_stop(KelG729fDec* dec);
bool kel_g729f_dtx_cancel(KelG729fDec* dec);

// The element begins to play, or pauses. Pausing returns whether it played.
void kel_g729f_dtx_play(KelG729fDec* dec);
bool kel_g729f_dtx_pause(KelG729fDec* dec);

// How long after its running time noise may be made (timeline.h).
void kel_g729f_dtx_set_allowance(KelG729fDec* dec, Time allowance);

// Ends and joins the thread, if there is one. Whatever holds it up, or the streaming thread, in a
// push is released: the source pad is deactivated first; what is behind it gets a flush if that
// does not help within kHeldUp.
constexpr GstClockTime kHeldUp = 50 * GST_MSECOND;
void kel_g729f_dtx_join(KelG729fDec* dec);

GST_DEBUG_CATEGORY_EXTERN(g729fdec);
