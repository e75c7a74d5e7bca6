// Files that are written and hashed by threads.

#include "file_writer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

#include "digest.h"
#include "media/error.h"
#include "support/files.h"
#include "support/temp_dir.h"

namespace {

using namespace media;
using namespace std::chrono_literals;
using test_support::ReadFile;

std::string DigestOf(const std::string& bytes) {
    Digest digest;
    digest.Add(bytes.data(), bytes.size());
    return digest.Text();
}

/// Keeps files from growing beyond a size, as a full disk does.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*m_handler)(int);
    rlimit m_before = {};
};

class FileWriters : public ::testing::Test {
protected:
    int Open(int flags = O_RDWR | O_CREAT | O_TRUNC) const {
        return open(m_path.c_str(), flags | O_CLOEXEC, 0666);
    }

    /// Something that differs from byte to byte and from chunk to chunk.
    static std::string Pattern(size_t size) {
        std::string bytes(size, '\0');
        for (size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<char>(i * 7 + i / 251);
        }
        return bytes;
    }

    static void Complete(FileWriter& writer) {
        writer.BeginCompletion();
        writer.AwaitCompletion();
    }

    /// Writes until it goes wrong.
    /// @return what is said then
    static std::string Fail(FileWriter& writer, ErrorKind kind) {
        const std::string piece(100000, 'x');
        try {
            for (int i = 0; i < 1000; ++i) {
                writer.Write(piece.data(), piece.size());
            }
            Complete(writer);
        } catch (const Error& error) {
            EXPECT_EQ(error.Kind(), kind);
            return error.what();
        }
        return "";
    }

    test_support::TempDir m_dir;
    const std::string m_path = m_dir.File("file");
};

TEST(Digests, AreThoseOfTheStandard) {
    EXPECT_EQ(DigestOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(DigestOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    Digest digest;
    digest.Add("x", 1);
    digest.Restart();
    digest.Add("ab", 2);
    digest.Add("c", 1);
    EXPECT_EQ(digest.Text(), DigestOf("abc"));
}

TEST_F(FileWriters, WriteAndHashWhatIsAppended) {
    Pipeline pipeline;
    // Sizes around a chunk's, and many chunks at once.
    for (const size_t size : {size_t{0}, size_t{1}, Chunk::kSize - 1, Chunk::kSize, Chunk::kSize + 1,
                              100 * Chunk::kSize + 12345}) {
        const std::string bytes = Pattern(size);
        FileWriter writer("name", Open(), pipeline);
        writer.Write(bytes.data(), bytes.size());
        EXPECT_EQ(writer.Size(), size);
        Complete(writer);
        EXPECT_TRUE(ReadFile(m_path) == bytes) << size;
        EXPECT_EQ(writer.Sha256(), DigestOf(bytes)) << size;
    }
}

TEST_F(FileWriters, FillSeveralFilesAtOnce) {
    Pipeline pipeline;
    FileWriter first("first", Open(), pipeline);
    FileWriter second("second", open(m_dir.File("second").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666),
                      pipeline);
    const std::string bytes = Pattern(3000000);
    for (size_t at = 0; at < bytes.size(); at += 1000) {
        first.Write(bytes.data() + at, 1000);
        second.Write(bytes.data() + at, 500);
        second.Write(bytes.data() + at + 500, 500);
    }
    first.BeginCompletion();
    second.BeginCompletion();
    second.AwaitCompletion();
    first.AwaitCompletion();
    EXPECT_EQ(first.Sha256(), DigestOf(bytes));
    EXPECT_EQ(second.Sha256(), DigestOf(bytes));
    EXPECT_TRUE(ReadFile(m_dir.File("second")) == bytes);
}

TEST_F(FileWriters, HashWhatWasRewritten) {
    Pipeline pipeline;
    for (const bool expected : {false, true}) {
        std::string bytes = Pattern(2000000);
        FileWriter writer("name", Open(), pipeline);
        if (expected) {
            writer.ExpectRewrite();
        }
        writer.Write(bytes.data(), bytes.size());
        writer.Rewrite(3, "new", 3);
        writer.Rewrite(1999998, "!", 1);
        bytes.replace(3, 3, "new");
        bytes[1999998] = '!';
        Complete(writer);
        EXPECT_TRUE(ReadFile(m_path) == bytes);
        EXPECT_EQ(writer.Sha256(), DigestOf(bytes));
        EXPECT_EQ(writer.Size(), 2000000u);
    }
}

TEST_F(FileWriters, SayThatTheMediumIsFull) {
    Pipeline pipeline;
    {
        FileWriter writer("a/name", open("/dev/full", O_RDWR | O_CLOEXEC), pipeline);
        EXPECT_EQ(Fail(writer, ErrorKind::CannotWrite),
                  "a/name: cannot be written: No space left on device; nothing was kept");
        // It does not become right again.
        EXPECT_THROW(Complete(writer), Error);
    }
    const FileSizeLimit limit(3000000);
    FileWriter writer("name", Open(), pipeline);
    EXPECT_EQ(Fail(writer, ErrorKind::CannotWrite),
              "name: cannot be written: File too large; nothing was kept");
}

TEST_F(FileWriters, SayItEvenOfTheLastByte) {
    Pipeline pipeline;
    FileWriter writer("name", open("/dev/full", O_RDWR | O_CLOEXEC), pipeline);
    writer.Write("x", 1);
    EXPECT_THROW(Complete(writer), Error);
}

TEST_F(FileWriters, SayThatAFileIsNotOpenForWriting) {
    Pipeline pipeline;
    close(Open());
    FileWriter writer("name", Open(O_RDONLY), pipeline);
    EXPECT_EQ(Fail(writer, ErrorKind::CannotWrite),
              "name: cannot be written: Bad file descriptor; nothing was kept");
}

TEST_F(FileWriters, SayThatAFileCannotBeReadBack) {
    Pipeline pipeline;
    FileWriter writer("name", Open(O_WRONLY | O_CREAT | O_TRUNC), pipeline);
    writer.Write("abc", 3);
    writer.Rewrite(0, "x", 1);
    try {
        Complete(writer);
        FAIL();
    } catch (const Error& error) {
        EXPECT_EQ(error.Kind(), ErrorKind::CannotReadBack);
        EXPECT_STREQ(error.what(), "name: cannot be read back: Bad file descriptor; nothing was kept");
    }
}

TEST_F(FileWriters, DropWhatIsNotWrittenYetWhenTheyGo) {
    Pipeline pipeline;
    const std::string bytes = Pattern(1000000);
    {
        FileWriter writer("name", Open(), pipeline);
        writer.Write(bytes.data(), bytes.size());
    }
    // The pipeline serves other files as before.
    FileWriter other("other", open(m_dir.File("other").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666),
                     pipeline);
    other.Write(bytes.data(), bytes.size());
    Complete(other);
    EXPECT_EQ(other.Sha256(), DigestOf(bytes));
}

TEST_F(FileWriters, EndSoonThoughTheMediumTakesNothing) {
    // A pipe that nobody reads stands for a medium that hangs.
    int ends[2] = {};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const auto begin = std::chrono::steady_clock::now();
    {
        Pipeline pipeline([begin] {
            if (std::chrono::steady_clock::now() - begin > 300ms) {
                throw std::runtime_error("enough");
            }
        });
        // Positioned writes fail on pipes at once, which is as good a reason to end.
        FileWriter writer("name", ends[1], pipeline);
        EXPECT_NE(Fail(writer, ErrorKind::CannotWrite), "");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << "at once, but for what else the machine does";
    close(ends[0]);
}

/// A pipe.
struct Ends {
    Ends() { EXPECT_EQ(pipe2(descriptors, O_CLOEXEC), 0); }
    int descriptors[2] = {};
};

TEST_F(FileWriters, WriteAndHashAStream) {
    Pipeline pipeline;
    const std::string bytes = Pattern(3 * Chunk::kSize + 12345);
    const Ends ends;
    std::string read;
    std::thread reader([&] {
        char piece[10000];
        for (ssize_t got = 0; (got = ::read(ends.descriptors[0], piece, sizeof piece)) > 0;) {
            read.append(piece, static_cast<size_t>(got));
        }
    });
    {
        const auto writer = FileWriter::ToStream("stream", ends.descriptors[1], pipeline);
        writer->Write(bytes.data(), bytes.size());
        Complete(*writer);
        EXPECT_EQ(writer->Sha256(), DigestOf(bytes));
    }
    reader.join();
    EXPECT_TRUE(read == bytes);
    close(ends.descriptors[0]);
}

TEST_F(FileWriters, TellThatNobodyReadsAStream) {
    std::signal(SIGPIPE, SIG_IGN);
    Pipeline pipeline;
    const Ends ends;
    close(ends.descriptors[0]);
    const auto writer = FileWriter::ToStream("stream", ends.descriptors[1], pipeline);
    EXPECT_EQ(Fail(*writer, ErrorKind::NobodyReads),
              "stream: cannot be written: Broken pipe; what was written is not whole");
}

TEST_F(FileWriters, EndSoonThoughNobodyTakesFromAStream) {
    const Ends ends;
    const auto begin = std::chrono::steady_clock::now();
    {
        Pipeline pipeline([begin] {
            if (std::chrono::steady_clock::now() - begin > 300ms) {
                throw std::runtime_error("enough");
            }
        });
        const std::string bytes = Pattern(Chunk::kSize);
        const auto writer = FileWriter::ToStream("stream", ends.descriptors[1], pipeline);
        writer->Write(bytes.data(), bytes.size());
        EXPECT_THROW(Complete(*writer), std::runtime_error);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    close(ends.descriptors[0]);
}

} // namespace
