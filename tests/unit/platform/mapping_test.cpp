// Mappings of files and their views on every system: granular offsets, write-back at unmap, whole-length
// reservation. POSIX's alone: the in-page error of a file cut under its mapping (Windows refuses to cut a
// mapped file) and of refused write-backs, which a file size limit or a small mount of one's own provoke.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "plat/errors.h"
#include "plat/file_mapping.h"
#include "plat/files.h"
#include "plat/strings.h"
#include "temp_folder.h"

#ifndef _WIN32
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#endif

namespace {

using Bytes = std::vector<unsigned char>;

Bytes patterned(std::size_t length) {
    Bytes bytes(length);
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7 + (i >> 16));
    }
    return bytes;
}

Bytes readAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

#ifndef _WIN32
// Writes beyond `bytes` fail (EFBIG) while this lives, in every thread of the process.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_previousHandler(::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &m_original);
        rlimit limited = m_original;
        limited.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_original);
        ::signal(SIGXFSZ, m_previousHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_original{};
    void (*m_previousHandler)(int);
};
#endif

class FileMappingTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(m_scratch.path().empty());
        plat::TakeInPageError();
    }
    // The handles go before the folder does (Windows deletes no file that is open).
    void TearDown() override {
        for (plat::HANDLE handle : m_handles) {
            plat::CloseHandle(handle);
        }
    }

    std::filesystem::path path(const std::string& name) const {
        return m_scratch.path() / std::filesystem::path(name).make_preferred();
    }

    plat::HANDLE open(const std::string& name, plat::DWORD access, plat::DWORD disposition) {
        plat::HANDLE file = plat::CreateFileW(path(name).u16string().c_str(), access, 0, nullptr, disposition,
                                              plat::FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != plat::INVALID_HANDLE_VALUE) {
            m_handles.push_back(file);
        }
        return file;
    }

    plat::HANDLE map(plat::HANDLE file, plat::DWORD protect, std::uint64_t size) {
        plat::HANDLE mapping =
            plat::CreateFileMappingW(file, nullptr, protect, static_cast<plat::DWORD>(size >> 32),
                                     static_cast<plat::DWORD>(size), nullptr);
        if (mapping != nullptr) {
            m_handles.push_back(mapping);
        }
        return mapping;
    }

    void write(const std::string& name, const Bytes& bytes) {
        std::ofstream out(path(name), std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    velq_test::TempFolder m_scratch{"velq-mapping-"};
    std::vector<plat::HANDLE> m_handles;
};

TEST_F(FileMappingTest, ReadViewShowsTheFileAtGranularOffsetsOnly) {
    const Bytes content = patterned(200000);
    write("src", content);
    plat::HANDLE mapping = map(open("src", plat::GENERIC_READ, plat::OPEN_EXISTING), plat::PAGE_READONLY, 0);
    ASSERT_NE(mapping, nullptr);

    const auto* view =
        static_cast<const unsigned char*>(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 65536, 0));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(std::memcmp(view, content.data() + 65536, content.size() - 65536), 0);
    EXPECT_TRUE(plat::UnmapViewOfFile(view));
    EXPECT_FALSE(plat::TakeInPageError());

    EXPECT_EQ(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 4096, 16), nullptr);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_MAPPED_ALIGNMENT);
    EXPECT_EQ(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 131072, 200000 - 131072 + 1), nullptr);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_ACCESS_DENIED) << "past the mapping's end";
    EXPECT_EQ(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0, 0, 16), nullptr);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_ACCESS_DENIED) << "a read-only mapping";
}

TEST_F(FileMappingTest, MappingRefusesWhatWindowsRefuses) {
    write("empty", {});
    EXPECT_EQ(map(open("empty", plat::GENERIC_READ, plat::OPEN_EXISTING), plat::PAGE_READONLY, 0), nullptr);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_FILE_INVALID);
    write("ro", patterned(10));
    plat::HANDLE readOnly = open("ro", plat::GENERIC_READ, plat::OPEN_EXISTING);
    EXPECT_EQ(map(readOnly, plat::PAGE_READWRITE, 100), nullptr);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_ACCESS_DENIED) << "writing needs a handle that writes";
    EXPECT_EQ(map(readOnly, plat::PAGE_READONLY, 11), nullptr) << "a read-only mapping cannot grow the file";
    EXPECT_EQ(std::filesystem::file_size(path("ro")), 10U);
}

TEST_F(FileMappingTest, WritableViewOfANewFileReadsZeroAndIsWrittenBackAtUnmap) {
    plat::HANDLE file = open("dest", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::CREATE_ALWAYS);
    plat::HANDLE mapping = map(file, plat::PAGE_READWRITE, 131072 + 48);
    ASSERT_NE(mapping, nullptr);
    EXPECT_EQ(std::filesystem::file_size(path("dest")), 131072U + 48U) << "extended to its whole length";
    // Windows keeps a mapped file open: so does the mapping here, after the file's handle is gone.
    plat::CloseHandle(file);
    m_handles.erase(m_handles.begin());

    auto* view = static_cast<unsigned char*>(
        plat::MapViewOfFile(mapping, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0, 65536, 65536 + 48));
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(std::all_of(view, view + 65536 + 48, [](unsigned char b) { return b == 0; }));
    const Bytes block = patterned(65536 + 48);
    std::memcpy(view, block.data(), block.size());
    ASSERT_TRUE(plat::UnmapViewOfFile(view));
    EXPECT_FALSE(plat::TakeInPageError());

    const Bytes written = readAll(path("dest"));
    ASSERT_EQ(written.size(), 131072U + 48U);
    EXPECT_TRUE(
        std::all_of(written.begin(), written.begin() + 65536, [](unsigned char b) { return b == 0; }));
    EXPECT_TRUE(std::equal(block.begin(), block.end(), written.begin() + 65536));
}

// A destination grown by SetEndOfFile or by its mapping is zero behind its old end, and views skip
// reading those bytes; whatever was written there since, through the handle or a view, must still show.
TEST_F(FileMappingTest, ViewsOfAGrownFileShowWhatWasWrittenIntoItsNewLength) {
    write("dest", patterned(1000));
    plat::HANDLE file = open("dest", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::OPEN_EXISTING);
    ASSERT_TRUE(plat::SetFilePointerEx(file, plat::LARGE_INTEGER{4 * 65536}, nullptr, plat::FILE_BEGIN));
    ASSERT_TRUE(plat::SetEndOfFile(file));
    ASSERT_TRUE(plat::SetFilePointerEx(file, plat::LARGE_INTEGER{65536 + 10}, nullptr, plat::FILE_BEGIN));
    const Bytes header = patterned(32);
    plat::DWORD written = 0;
    ASSERT_TRUE(plat::WriteFile(file, header.data(), 32, &written, nullptr));
    plat::HANDLE mapping = map(file, plat::PAGE_READWRITE, 5 * 65536);
    ASSERT_NE(mapping, nullptr);

    auto* first = static_cast<unsigned char*>(
        plat::MapViewOfFile(mapping, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0, 0, 3 * 65536));
    ASSERT_NE(first, nullptr);
    const Bytes old = patterned(1000);
    EXPECT_TRUE(std::equal(old.begin(), old.end(), first)) << "the old bytes are read";
    EXPECT_TRUE(std::all_of(first + 1000, first + 65536 + 10, [](unsigned char b) { return b == 0; }));
    EXPECT_TRUE(std::equal(header.begin(), header.end(), first + 65536 + 10)) << "written by WriteFile";
    first[2 * 65536 + 5] = 0xAB;
    ASSERT_TRUE(plat::UnmapViewOfFile(first));

    const auto* second = static_cast<const unsigned char*>(
        plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 2 * 65536, 3 * 65536));
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second[5], 0xAB) << "written by an earlier view";
    EXPECT_TRUE(std::all_of(second + 6, second + 3 * 65536, [](unsigned char b) { return b == 0; }));
    plat::UnmapViewOfFile(second);
    EXPECT_FALSE(plat::TakeInPageError());
}

// The engine's rhythm: a view of the source, then a view of the new file, block after block. The buffers
// behind views are used again, some holding what was read, some wiped by the writer: a view of the new
// file must read as zero every time, to the end of its last page, whichever buffer it gets. Every other
// block maps its source four times over, so that only buffers holding source bytes are left to reuse.
TEST_F(FileMappingTest, ViewsOfANewFileReadZeroBlockAfterBlockWhateverTheirBuffersHeldBefore) {
    constexpr std::size_t kBlocks = 6;
    constexpr std::size_t kShort = 65536 - 100;  // the page's tail behind the view must read zero too
    const Bytes source = patterned(kBlocks * 65536);
    write("source", source);
    plat::HANDLE sourceMapping =
        map(open("source", plat::GENERIC_READ, plat::OPEN_EXISTING), plat::PAGE_READONLY, 0);
    plat::HANDLE destMapping =
        map(open("dest", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::CREATE_ALWAYS), plat::PAGE_READWRITE,
            kBlocks * 65536);
    ASSERT_NE(sourceMapping, nullptr);
    ASSERT_NE(destMapping, nullptr);
    for (std::size_t block = 0; block < kBlocks; ++block) {
        const auto offset = static_cast<plat::DWORD>(block * 65536);
        std::vector<const unsigned char*> ins(block % 2 == 0 ? 4 : 1);
        for (const unsigned char*& in : ins) {
            in = static_cast<const unsigned char*>(
                plat::MapViewOfFile(sourceMapping, plat::FILE_MAP_READ, 0, offset, 65536));
            ASSERT_NE(in, nullptr);
        }
        Bytes plain(ins.front(), ins.front() + kShort);
        for (const unsigned char* in : ins) {
            ASSERT_TRUE(plat::UnmapViewOfFile(in));
        }
        auto* out = static_cast<unsigned char*>(
            plat::MapViewOfFile(destMapping, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0, offset, kShort));
        ASSERT_NE(out, nullptr);
        ASSERT_TRUE(std::all_of(out, out + 65536, [](unsigned char b) { return b == 0; }))
            << "block " << block;
        std::transform(plain.begin(), plain.end(), out,
                       [](unsigned char b) { return static_cast<unsigned char>(~b); });
        ASSERT_TRUE(plat::UnmapViewOfFile(out));
    }
    EXPECT_FALSE(plat::TakeInPageError());
    for (plat::HANDLE& handle : m_handles) {
        plat::CloseHandle(handle);
    }
    m_handles.clear();
    const Bytes written = readAll(path("dest"));
    ASSERT_EQ(written.size(), kBlocks * 65536);
    for (std::size_t i = 0; i < written.size(); ++i) {
        const auto expected = static_cast<unsigned char>(i % 65536 < kShort ? ~source[i] : 0);
        ASSERT_EQ(written[i], expected) << "byte " << i;
    }
}

// A read-only mapping reads the block behind each view ahead. Whatever order and length the views come
// in, each shows the file's bytes and zeros to the end of its last page (on Windows only at the file's
// end; inside the file the page goes on with the file's bytes there): front to back, with a last view
// longer than the others (a final cipher call), then a short view where a whole block was read ahead, and
// views out of order. The mapping is closed while a read ahead is still in flight.
TEST_F(FileMappingTest, ReadOnlyViewsShowTheFileInAnyOrderAndAtAnyLength) {
    const Bytes content = patterned(5 * 65536 + 100);
    write("src", content);
    plat::HANDLE mapping = map(open("src", plat::GENERIC_READ, plat::OPEN_EXISTING), plat::PAGE_READONLY, 0);
    ASSERT_NE(mapping, nullptr);
    const auto expectView = [&](std::uint64_t offset, std::size_t length) {
        const auto* view = static_cast<const unsigned char*>(
            plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, static_cast<plat::DWORD>(offset), length));
        ASSERT_NE(view, nullptr);
        EXPECT_EQ(std::memcmp(view, content.data() + offset, length), 0) << "view at " << offset;
        std::size_t pageEnd = (length + 4095) / 4096 * 4096;
#ifdef _WIN32
        if (offset + length < content.size()) {
            pageEnd = length;  // Windows shows the file's next bytes behind a view inside the file
        }
#endif
        EXPECT_TRUE(std::all_of(view + length, view + pageEnd, [](unsigned char b) { return b == 0; }))
            << "the page's tail behind the view at " << offset;
        EXPECT_TRUE(plat::UnmapViewOfFile(view));
        EXPECT_FALSE(plat::TakeInPageError());
    };
    for (std::uint64_t block = 0; block < 4; ++block) {
        expectView(block * 65536, 65536);
    }
    expectView(4 * 65536, 65536 + 100);
    expectView(0, 65536);
    expectView(65536, 1000);
    expectView(3 * 65536, 65536);
    expectView(65536, 65536);
    expectView(0, 3 * 65536);
    expectView(2 * 65536, 2 * 65536);
    expectView(0, 65536);
    plat::CloseHandle(mapping);
    m_handles.erase(std::find(m_handles.begin(), m_handles.end(), mapping));
}

// Nothing is read ahead for a handle that can write: a write between two views shows in the second. The
// write comes once a view of another file has been written back, which on POSIX goes through the same
// I/O thread after anything read ahead before it.
TEST_F(FileMappingTest, ReadOnlyMappingOfAWritingHandleShowsWhatWasWrittenBetweenViews) {
    write("src", patterned(3 * 65536));
    plat::HANDLE file = open("src", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::OPEN_EXISTING);
    plat::HANDLE mapping = map(file, plat::PAGE_READONLY, 0);
    plat::HANDLE other = map(open("other", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::CREATE_ALWAYS),
                             plat::PAGE_READWRITE, 16);
    ASSERT_NE(mapping, nullptr);
    ASSERT_NE(other, nullptr);
    ASSERT_TRUE(plat::UnmapViewOfFile(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 0, 65536)));
    ASSERT_TRUE(plat::UnmapViewOfFile(plat::MapViewOfFile(other, plat::FILE_MAP_WRITE, 0, 0, 16)));
    const Bytes changed(100, 0xEE);
    ASSERT_TRUE(plat::SetFilePointerEx(file, plat::LARGE_INTEGER{65536}, nullptr, plat::FILE_BEGIN));
    plat::DWORD written = 0;
    ASSERT_TRUE(plat::WriteFile(file, changed.data(), 100, &written, nullptr));

    const auto* view =
        static_cast<const unsigned char*>(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 65536, 65536));
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(std::equal(changed.begin(), changed.end(), view));
    EXPECT_TRUE(plat::UnmapViewOfFile(view));
}

// Two threads copy a file each through views at once: the blocks of both go through the one I/O thread
// (read ahead and written behind), and each copy must hold its own file's bytes.
TEST_F(FileMappingTest, TwoThreadsCopyingThroughViewsAtOnceEachGetTheirOwnBytes) {
    constexpr std::size_t kBlocks = 8;
    // Handles of its own, closed before it returns: the fixture's list is not for two threads.
    const auto copy = [this](const std::string& from, const std::string& to) {
        plat::HANDLE in = plat::CreateFileW(path(from).u16string().c_str(), plat::GENERIC_READ, 0, nullptr,
                                            plat::OPEN_EXISTING, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
        plat::HANDLE out =
            plat::CreateFileW(path(to).u16string().c_str(), plat::GENERIC_READ | plat::GENERIC_WRITE, 0,
                              nullptr, plat::CREATE_ALWAYS, plat::FILE_ATTRIBUTE_NORMAL, nullptr);
        plat::HANDLE source = plat::CreateFileMappingW(in, nullptr, plat::PAGE_READONLY, 0, 0, nullptr);
        plat::HANDLE dest =
            plat::CreateFileMappingW(out, nullptr, plat::PAGE_READWRITE, 0, kBlocks * 65536, nullptr);
        bool copied = source != nullptr && dest != nullptr;
        for (std::size_t block = 0; block < kBlocks && copied; ++block) {
            const auto offset = static_cast<plat::DWORD>(block * 65536);
            void* read = plat::MapViewOfFile(source, plat::FILE_MAP_READ, 0, offset, 65536);
            void* written =
                plat::MapViewOfFile(dest, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0, offset, 65536);
            copied = read != nullptr && written != nullptr;
            if (copied) {
                std::memcpy(written, read, 65536);
                copied = plat::UnmapViewOfFile(read) && plat::UnmapViewOfFile(written);
            }
        }
        for (plat::HANDLE handle : {source, dest, in, out}) {
            plat::CloseHandle(handle);
        }
        return copied && !plat::TakeInPageError();
    };
    const Bytes first = patterned(kBlocks * 65536);
    const Bytes second(first.rbegin(), first.rend());
    write("first", first);
    write("second", second);

    bool firstCopied = false;
    std::thread other([&] { firstCopied = copy("first", "first.copy"); });
    const bool secondCopied = copy("second", "second.copy");
    other.join();
    EXPECT_TRUE(firstCopied);
    EXPECT_TRUE(secondCopied);
    EXPECT_EQ(readAll(path("first.copy")), first);
    EXPECT_EQ(readAll(path("second.copy")), second);
}

TEST_F(FileMappingTest, ReservationBeyondAnyMediumFailsWithDiskFullAndLeavesTheFileAlone) {
    plat::HANDLE file = open("huge", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::CREATE_ALWAYS);
    ASSERT_NE(file, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(map(file, plat::PAGE_READWRITE, std::uint64_t{1} << 62), nullptr);
#ifndef _WIN32
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_DISK_FULL);  // Wine says 8, not enough memory
#endif
    EXPECT_EQ(std::filesystem::file_size(path("huge")), 0U);
}

#ifndef _WIN32
TEST_F(FileMappingTest, FileThatShrankUnderItsMappingGivesTheInPageErrorOnce) {
    write("src", patterned(200000));
    plat::HANDLE mapping = map(open("src", plat::GENERIC_READ, plat::OPEN_EXISTING), plat::PAGE_READONLY, 0);
    ASSERT_NE(mapping, nullptr);
    ASSERT_EQ(::truncate(path("src").c_str(), 70000), 0);

    const auto* view =
        static_cast<const unsigned char*>(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 65536, 65536));
    ASSERT_NE(view, nullptr) << "as on Windows, the fault comes with the view's bytes, not with the view";
    EXPECT_TRUE(std::all_of(view + (70000 - 65536), view + 65536, [](unsigned char b) { return b == 0; }));
    plat::UnmapViewOfFile(view);
    EXPECT_TRUE(plat::TakeInPageError());
    EXPECT_FALSE(plat::TakeInPageError()) << "taking the mark clears it";
}

// The block behind a view is read ahead; when the file was cut short before that read, the view that
// asks for the block reads it again for itself and gets the in-page error, as it would without read-ahead.
TEST_F(FileMappingTest, BlockReadAheadOfAFileCutShortGivesTheInPageErrorInTheViewThatAsksForIt) {
    write("src", patterned(200000));
    plat::HANDLE mapping = map(open("src", plat::GENERIC_READ, plat::OPEN_EXISTING), plat::PAGE_READONLY, 0);
    ASSERT_NE(mapping, nullptr);
    ASSERT_EQ(::truncate(path("src").c_str(), 70000), 0);
    ASSERT_TRUE(plat::UnmapViewOfFile(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 0, 65536)));
    EXPECT_FALSE(plat::TakeInPageError()) << "the first block is whole";

    const auto* view =
        static_cast<const unsigned char*>(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 65536, 65536));
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(std::all_of(view + (70000 - 65536), view + 65536, [](unsigned char b) { return b == 0; }));
    plat::UnmapViewOfFile(view);
    EXPECT_TRUE(plat::TakeInPageError());
}

// A write-back that the system refuses (here: beyond the process's file size limit) marks the thread.
TEST_F(FileMappingTest, FailedWriteBackAtUnmapGivesFalseAndTheInPageError) {
    plat::HANDLE file = open("dest", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::CREATE_ALWAYS);
    plat::HANDLE mapping = map(file, plat::PAGE_READWRITE, 131072);
    ASSERT_NE(mapping, nullptr);
    auto* view = static_cast<unsigned char*>(
        plat::MapViewOfFile(mapping, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0, 65536, 65536));
    ASSERT_NE(view, nullptr);
    std::memset(view, 0xEE, 65536);

    plat::BOOL unmapped = plat::TRUE;
    {
        const FileSizeLimit limit(65536);
        unmapped = plat::UnmapViewOfFile(view);
    }

    EXPECT_FALSE(unmapped);
    EXPECT_TRUE(plat::TakeInPageError());
    const auto* again =
        static_cast<const unsigned char*>(plat::MapViewOfFile(mapping, plat::FILE_MAP_READ, 0, 65536, 0));
    ASSERT_NE(again, nullptr) << "the mapping itself stays usable";
    EXPECT_EQ(again[0], 0) << "what was refused never reached the file";
    EXPECT_TRUE(plat::UnmapViewOfFile(again));
}

// Views are written behind their unmap, the last view of a mapping excepted. A refused write of a view in
// the middle must still reach the caller: at the next unmap, or at the next call on the file.
TEST_F(FileMappingTest, RefusedWriteOfAMiddleViewSurfacesAtTheNextUnmapOrFileCall) {
    plat::HANDLE file = open("dest", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::CREATE_ALWAYS);
    plat::HANDLE mapping = map(file, plat::PAGE_READWRITE, 4 * 65536);
    ASSERT_NE(mapping, nullptr);
    const auto fill = [&](std::uint64_t offset, unsigned char value) {
        void* view = plat::MapViewOfFile(mapping, plat::FILE_MAP_READ | plat::FILE_MAP_WRITE, 0,
                                         static_cast<plat::DWORD>(offset), 65536);
        if (view != nullptr) {
            std::memset(view, value, 65536);
        }
        return view;
    };
    const FileSizeLimit limit(2 * 65536);
    ASSERT_TRUE(plat::UnmapViewOfFile(fill(0, 0x11)));
    EXPECT_TRUE(plat::UnmapViewOfFile(fill(2 * 65536, 0x33))) << "refused behind the caller's back";
    EXPECT_FALSE(plat::TakeInPageError());
    plat::UnmapViewOfFile(fill(65536, 0x22));
    EXPECT_TRUE(plat::TakeInPageError())
        << "the refusal is reported with the next view, as the block's fault";

    ASSERT_TRUE(plat::UnmapViewOfFile(fill(2 * 65536, 0x33)));
    plat::DWORD read = 0;
    unsigned char first = 0;
    EXPECT_FALSE(plat::ReadFile(file, &first, 1, &read, nullptr)) << "the file's next call reports it";
    EXPECT_FALSE(plat::TakeInPageError());
    EXPECT_TRUE(plat::ReadFile(file, &first, 1, &read, nullptr)) << "once";
    EXPECT_EQ(first, 0x11) << "written before the refusal";
}

// A filesystem of 1 MiB of our own (tmpfs), where a reservation beyond it must fail at creation.
TEST_F(FileMappingTest, FullDiskFailsAtCreationWithDiskFull) {
    const std::filesystem::path small = path("small");
    std::filesystem::create_directory(small);
    if (::mount("tmpfs", small.c_str(), "tmpfs", 0, "size=1m") != 0) {
        GTEST_SKIP() << "cannot mount a small tmpfs here (needs CAP_SYS_ADMIN): " << std::strerror(errno);
    }
    plat::HANDLE file = open("small/dest", plat::GENERIC_READ | plat::GENERIC_WRITE, plat::CREATE_ALWAYS);
    ASSERT_NE(file, plat::INVALID_HANDLE_VALUE);
    EXPECT_EQ(map(file, plat::PAGE_READWRITE, 8U << 20), nullptr);
    EXPECT_EQ(plat::GetLastError(), plat::ERROR_DISK_FULL);
    EXPECT_NE(map(file, plat::PAGE_READWRITE, 256U << 10), nullptr) << "what fits is reserved";
    for (plat::HANDLE handle : m_handles) {
        plat::CloseHandle(handle);
    }
    m_handles.clear();
    ::umount2(small.c_str(), MNT_DETACH);
}
#endif

}  // namespace
