// The block function that SHA-256 and SHA-512 share: they differ only in word size, rotation
// counts, round count and constants, which a `Sha2` description supplies:
//   Word, kRounds, Load(bytes), Sigma0/Sigma1 (of a and e), Schedule0/Schedule1 (of the words
//   15 and 2 back), Constant(round).
#pragma once
#include <cstddef>
#include <cstdint>
#include <utility>

#include "crypto/hash_blocks.h"

// Round `Round`. The message schedule keeps only the last 16 words, in a ring.
// The caller rotates the roles of a..h between calls instead of moving the values.
template <class Sha2, int Round, class Word = typename Sha2::Word>
VEY_HASH_INLINE void Sha2Step(Word a, Word b, Word c, Word& d, Word e, Word f, Word g, Word& h, Word (&w)[16], const uint8_t* block)
{
    Word word;
    if constexpr (Round < 16) {
        word = Sha2::Load(block + sizeof(Word) * Round);
    } else {
        // W[t-16] + s0(W[t-15]) + W[t-7] + s1(W[t-2]).
        word = w[Round & 15] + Sha2::Schedule0(w[(Round + 1) & 15]) + w[(Round + 9) & 15] + Sha2::Schedule1(w[(Round + 14) & 15]);
    }
    w[Round & 15] = word;

    h += Sha2::Sigma1(e) + (g ^ (e & (f ^ g))) + Sha2::Constant(Round) + word;
    d += h;
    h += Sha2::Sigma0(a) + ((a & b) | (c & (a | b)));
}

// Eight rounds bring the roles of a..h back to where they started.
template <class Sha2, int First, class Word>
VEY_HASH_INLINE void Sha2EightSteps(Word (&v)[8], Word (&w)[16], const uint8_t* block)
{
    Sha2Step<Sha2, First>(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], w, block);
    Sha2Step<Sha2, First + 1>(v[7], v[0], v[1], v[2], v[3], v[4], v[5], v[6], w, block);
    Sha2Step<Sha2, First + 2>(v[6], v[7], v[0], v[1], v[2], v[3], v[4], v[5], w, block);
    Sha2Step<Sha2, First + 3>(v[5], v[6], v[7], v[0], v[1], v[2], v[3], v[4], w, block);
    Sha2Step<Sha2, First + 4>(v[4], v[5], v[6], v[7], v[0], v[1], v[2], v[3], w, block);
    Sha2Step<Sha2, First + 5>(v[3], v[4], v[5], v[6], v[7], v[0], v[1], v[2], w, block);
    Sha2Step<Sha2, First + 6>(v[2], v[3], v[4], v[5], v[6], v[7], v[0], v[1], w, block);
    Sha2Step<Sha2, First + 7>(v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[0], w, block);
}

template <class Sha2, class Word, size_t... Group>
VEY_HASH_INLINE void Sha2AllSteps(Word (&v)[8], Word (&w)[16], const uint8_t* block, std::index_sequence<Group...>)
{
    (Sha2EightSteps<Sha2, int(Group) * 8>(v, w, block), ...);
}

// Folds `blockCount` consecutive blocks of 16 words into the eight state words.
template <class Sha2, class Word = typename Sha2::Word>
void Sha2Compress(Word state[8], const uint8_t* blocks, size_t blockCount)
{
    Word w[16];
    for (; blockCount != 0; --blockCount, blocks += 16 * sizeof(Word)) {
        Word v[8];
        for (int i = 0; i < 8; ++i) {
            v[i] = state[i];
        }
        Sha2AllSteps<Sha2>(v, w, blocks, std::make_index_sequence<Sha2::kRounds / 8>());
        for (int i = 0; i < 8; ++i) {
            state[i] += v[i];
        }
    }
}
