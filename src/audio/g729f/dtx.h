// The decoder's comfort-noise thread.
//
// One thread per running element, "dtx-thread". From a decoded silence descriptor to the next
// input buffer it decodes an untransmitted frame every 10 ms of the element's clock and pushes it.
//
// Locks: the base class's stream lock first, the element's lock second. The element's lock guards
// the flags, clock_id and the thread's use of the codec; it is not held while waiting for the
// clock, while allocating, or while a buffer is unmapped and finished.
//
// The thread takes the stream lock for a whole packet, from the last look at dtx_active to the
// push. A packet therefore is out before the streaming thread handles the next buffer, or never
// made: noise cannot overtake the speech that ended it, nor come after a flush.
#pragma once

#include "src/audio/g729f/dec.h"

// The thread; `data` is the element.
gpointer kel_g729f_dtx_thread_main(gpointer data);

// One run of comfort noise. Called with the element's lock, returns with it.
void kel_g729f_dtx_func(KelG729fDec* dec);

// Called without the element's lock. After kel_g729f_dtx_stop, called with the stream lock held,
// the thread does not touch the codec before the next start. kel_g729f_dtx_cancel is the same for
// what is no buffer.
void kel_g729f_dtx_start(KelG729fDec* dec);
void kel_g729f_dtx_stop(KelG729fDec* dec);
void kel_g729f_dtx_cancel(KelG729fDec* dec);

// Ends and joins the thread, if there is one.
void kel_g729f_dtx_join(KelG729fDec* dec);

GST_DEBUG_CATEGORY_EXTERN(g729fdec);
