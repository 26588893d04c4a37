// BodyDigest: the digests of the bytes it was given, restarted with the file, and the size limit
// beyond which a file is never hashed, as HashFile keeps it.
#include <gtest/gtest.h>
#include "release/body_digest.h"
#include "release/item_objects.h"

#include <vector>

TEST(BodyDigest, PiecesGiveTheDigestsOfTheWhole)
{
    BodyDigest digest(true);
    digest.Take("garbage", 7);
    digest.Restart();
    digest.Take("a", 1);
    digest.Take("bc", 2);
    FileDigest sha1 = digest.Digest();
    EXPECT_EQ(sha1.hash, L"A9993E364706816ABA3E25717850C26C9CD0D89D");
    EXPECT_EQ(sha1.size, 3u);
    EXPECT_EQ(digest.Size(), 3u);
    EXPECT_TRUE(digest.MatchesSha256(L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    EXPECT_FALSE(digest.MatchesSha256(L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ae"));
    EXPECT_FALSE(digest.MatchesSha256(L"not hex"));
    // Reading the digests finishes copies: more bytes still count.
    digest.Take("d", 1);
    EXPECT_EQ(digest.Digest().hash, L"81FE8BFE87576C3ECB22426F8E57847382917ACF");  // "abcd"
}

// A download of an item of the objects format is hashed whatever its size.
TEST(BodyDigest, AHigherLimitHashesBeyondTheDefault)
{
    std::vector<char> piece(kHashPieceSize, 'x');
    BodyDigest digest(true, kMaxObjectsSize);
    for (uint64_t taken = 0; taken <= kMaxHashedSize; taken += piece.size())
        digest.Take(piece.data(), piece.size());
    FileDigest beyond = digest.Digest();
    EXPECT_EQ(beyond.size, kMaxHashedSize + kHashPieceSize);
    // python3: hashlib.sha1(b"x" * (0x10000000 + (4 << 20)))
    EXPECT_EQ(beyond.hash, L"9C63E9884902AE447DA239EA2DFAE4468A387B0A");
    EXPECT_TRUE(digest.MatchesSha256(L"C603EDA2C401AC6B90CAE510B5AE03BED76004BF80F35652F70E235157A8DF8D"));
}

TEST(BodyDigest, EmptyBodyAndNoSha256WhenNotAsked)
{
    BodyDigest digest(false);
    EXPECT_EQ(digest.Digest().hash, L"DA39A3EE5E6B4B0D3255BFEF95601890AFD80709");
    EXPECT_EQ(digest.Digest().size, 0u);
    EXPECT_FALSE(digest.MatchesSha256(L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
}

TEST(BodyDigest, ExactlyTheLimitIsHashedOneByteMoreIsNot)
{
    std::vector<char> piece(kHashPieceSize, 'x');
    BodyDigest digest(true);
    for (uint64_t taken = 0; taken < kMaxHashedSize; taken += piece.size())
        digest.Take(piece.data(), piece.size());
    FileDigest atLimit = digest.Digest();
    EXPECT_EQ(atLimit.size, kMaxHashedSize);
    // python3: hashlib.sha1(b"x" * 0x10000000)
    EXPECT_EQ(atLimit.hash, L"353A318ABFEB3EA0F32E98A3DF5F09993A841666");

    digest.Take("x", 1);
    FileDigest beyond = digest.Digest();
    EXPECT_EQ(beyond.size, kMaxHashedSize + 1);
    EXPECT_EQ(beyond.hash, kNoDigest);
    EXPECT_FALSE(digest.MatchesSha256(L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
}
