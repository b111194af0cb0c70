/*
 * genrand.h - the library's own pseudo-random number generator: a linear
 * congruential generator, x' = (15016 x + 1000999) mod 2029052025, worked
 * on 16-bit halves so that no product leaves 32 bits.  The same seed gives
 * the same sequence on every host.  The state is one unprotected static.
 */
#ifndef RAVELOG_GENRAND_H
#define RAVELOG_GENRAND_H

#ifdef __cplusplus
extern "C" {
#endif

/* Seeds the generator: the low 16 bits of seed are the state's low half,
 * the next 15 bits its high half. */
void gen_srand(unsigned seed);

/* The next number, in 0 to 2029052024.  An unseeded generator first seeds
 * itself from the microseconds of the current time.  From gen_srand(1) the
 * sequence starts 1016015, 1054118064, 3002998, 454874417. */
int gen_rand(void);

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_GENRAND_H */
