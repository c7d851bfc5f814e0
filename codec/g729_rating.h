/* What a call is worth to those who hold it: ITU-T G.107's transmission rating, and the mean
 * opinion score that goes with it. Needs nothing else of the library. */
#ifndef KELG729F_G729_RATING_H
#define KELG729F_G729_RATING_H

#include "g729.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct G729Rating {
  double r;   /* transmission rating factor (G.107, 7.1): below 50 is not recommended (G.109) */
  double mos; /* estimated mean opinion score, 1 to 4.5 (G.107, Annex B) */
} G729Rating;

/* loss: share of the packets that were not there in time, 0 to 1, after what redundancy brought
 * back. burst_ratio: mean number of packets lost in a row over that of independent losses of the
 * same share, 1 for those (G.107, 7.5); 0 or less, or with no loss, counts as 1. delay: from mouth
 * to ear, one way, ms. What is out of range is brought into it.
 *
 * Formulas and clauses are G.107's; all else is at its default values (Table 2 there), an echo path
 * of TELR 65 dB among them. The equipment impairment is that of G.729 Annex A with silence
 * compression, Ie 11 and Bpl 19, from G.113's provisional planning values (Appendix I). G.113 has
 * no Bpl for the main body's coder, which is this one's and is better by one in Ie.
 *
 * Neither Recommendation was at hand when this was written: the constants have not been compared
 * with a printed table, which is why none of G.113 is cited by number. The tests hold the result to
 * what is known of both: R 93.2 with every default, the MOS of four R, and the Ie of G.729 Annex A
 * under nine losses up to 16 %, which Ie 11 and Bpl 19 give within 0.6. */
G729_API G729Rating g729_rating(double loss, double burst_ratio, double delay);

#ifdef __cplusplus
}
#endif

#endif
