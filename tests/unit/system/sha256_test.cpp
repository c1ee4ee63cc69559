#include "agent/sha256.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/temporary_directory.h"

namespace {

using TavUtils::Sha256::GetFileSha256;
using TavUtils::Sha256::GetMemSha256;

// The examples of FIPS 180-2, and the digest of the empty text.
struct Vector {
    std::string content;
    const char* digest;
};

const Vector vectors[] = {
    {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
     "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
    {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
};

TEST(Sha256, ReturnsKnownDigests) {
    const TemporaryDirectory dir;
    for (const Vector& vector : vectors) {
        char digest[65] = "";
        EXPECT_TRUE(GetMemSha256(vector.content.data(), static_cast<unsigned int>(vector.content.size()), digest));
        EXPECT_STREQ(digest, vector.digest);

        char fileDigest[65] = "";
        const bool stop = false;
        EXPECT_TRUE(GetFileSha256(dir.Write("content", vector.content), fileDigest, &stop));
        EXPECT_STREQ(fileDigest, vector.digest);
    }
}

TEST(Sha256, AcceptsNullForNoBytes) {
    char digest[65] = "before";
    EXPECT_TRUE(GetMemSha256(nullptr, 0, digest));
    EXPECT_STREQ(digest, vectors[0].digest);
    EXPECT_FALSE(GetMemSha256(nullptr, 1, digest));
    EXPECT_STREQ(digest, vectors[0].digest);
}

TEST(Sha256, LeavesTheDigestUnchangedWithoutARegularFile) {
    const TemporaryDirectory dir;
    const std::string fifo = dir.Path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(symlink(fifo.c_str(), dir.Path("link").c_str()), 0);
    const std::string file = dir.Write("file", "abc");
    const std::string paths[] = {"",          dir.Path("missing"),          dir.Path(""),   fifo, dir.Path("link"),
                                 "/dev/zero", file + std::string("\0x", 2), file + "/below"};
    for (const std::string& path : paths) {
        char digest[65] = "before";
        EXPECT_FALSE(GetFileSha256(path, digest, nullptr)) << path;
        EXPECT_STREQ(digest, "before") << path;
    }
}

TEST(Sha256, StopsWhenAsked) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "abc");
    char digest[65] = "before";
    const bool stop = true;
    EXPECT_FALSE(GetFileSha256(file, digest, &stop));
    EXPECT_STREQ(digest, "before");
}

TEST(Sha256, StopsInTheMiddleOfAFile) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "");
    // A hole that is too large for any machine to read during the test.
    ASSERT_EQ(truncate(file.c_str(), off_t{1} << (sizeof(off_t) == 8 ? 40 : 30)), 0);
    char digest[65] = "before";
    bool stop = false;
    bool succeeded = true;
    std::thread reader([&] { succeeded = GetFileSha256(file, digest, &stop); });
    std::atomic_ref<bool>(stop).store(true);
    reader.join();
    EXPECT_FALSE(succeeded);
    EXPECT_STREQ(digest, "before");
}

TEST(Sha256, FollowsALinkToARegularFile) {
    const TemporaryDirectory dir;
    const std::string file = dir.Write("file", "abc");
    ASSERT_EQ(symlink(file.c_str(), dir.Path("link").c_str()), 0);
    char digest[65] = "";
    EXPECT_TRUE(GetFileSha256(dir.Path("link"), digest, nullptr));
    EXPECT_STREQ(digest, vectors[1].digest);
}

}  // namespace
