#include "host/sinks/stdout_sink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>

#include "host/base/descriptor.h"

namespace {

using testing::HasSubstr;

struct Pipe {
    explicit Pipe(int flags = 0) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC | flags) == 0) {
            readEnd = Host::Descriptor(ends[0]);
            writeEnd = Host::Descriptor(ends[1]);
        }
    }
    Host::Descriptor readEnd;
    Host::Descriptor writeEnd;
};

std::string ReadToEnd(int fd) {
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count > 0) {
            text.append(buffer, static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return text;
        }
    }
}

class StdoutSink : public testing::Test {
protected:
    void SetUp() override { before_ = ::signal(SIGPIPE, SIG_IGN); }
    void TearDown() override { ::signal(SIGPIPE, before_); }

private:
    void (*before_)(int) = nullptr;
};

TEST_F(StdoutSink, WritesOneLinePerEvent) {
    Pipe pipe;
    Host::StdoutSink sink(pipe.writeEnd.Get());
    sink.Write("{1}");
    sink.Write("{2}");
    pipe.writeEnd.Close();
    EXPECT_EQ(ReadToEnd(pipe.readEnd.Get()), "{1}\n{2}\n");
}

TEST_F(StdoutSink, WaitsForRoomInANonBlockingPipe) {
    Pipe pipe(O_NONBLOCK);
    ASSERT_EQ(::fcntl(pipe.readEnd.Get(), F_SETFL, 0), 0);
    const std::string big(1000000, 'x');
    std::string text;
    std::thread reader([&] { text = ReadToEnd(pipe.readEnd.Get()); });
    Host::StdoutSink sink(pipe.writeEnd.Get());
    sink.Write(big);
    sink.Write("{2}");
    pipe.writeEnd.Close();
    reader.join();
    EXPECT_EQ(text, big + "\n{2}\n");
    EXPECT_EQ(sink.Finish(), 0U);
}

TEST_F(StdoutSink, LogsAClosedReaderOnceAndCountsLosses) {
    Pipe pipe;
    pipe.readEnd.Close();
    Host::StdoutSink sink(pipe.writeEnd.Get());
    testing::internal::CaptureStderr();
    sink.Write("{1}");
    sink.Write("{2}");
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_THAT(log, HasSubstr("Broken pipe"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(sink.Finish(), 2U);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("events lost: 2, because"));
}

TEST_F(StdoutSink, EndsACutLineForTheNextReader) {
    char path[] = "/tmp/orlim-test-XXXXXX";
    ASSERT_NE(::mkdtemp(path), nullptr);
    const std::string fifo = std::string(path) + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    Host::Descriptor reader(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const Host::Descriptor writer(::open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
    ::unlink(fifo.c_str());
    // The name is gone, so the next reader opens the FIFO through this descriptor.
    const std::string again = "/proc/self/fd/" + std::to_string(writer.Get());
    ::rmdir(path);
    Host::StdoutSink sink(writer.Get());

    testing::internal::CaptureStderr();
    std::thread writing([&] { sink.Write(std::string(1000000, 'x')); });
    char byte = 0;
    while (::read(reader.Get(), &byte, 1) != 1) {
        std::this_thread::yield();
    }
    reader.Close();
    writing.join();
    const Host::Descriptor next(::open(again.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    // The data that the first reader left fills the pipe.
    const std::string remains = ReadToEnd(next.Get());
    sink.Write("{2}");
    const std::string log = testing::internal::GetCapturedStderr();

    EXPECT_THAT(log, HasSubstr("writing events to standard output again; 1 were lost"));
    EXPECT_EQ(remains.find_first_not_of('x'), std::string::npos);
    EXPECT_EQ(ReadToEnd(next.Get()), "\n{2}\n");
}

}  // namespace
