// The search for encrypted files: the query that menu type 4 hands to the shell, and what the platform's
// search finds for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "app_test_support.h"
#include "plat/paths.h"

namespace {

using app_test::ScopedEnv;
using app_test::TempDir;
using app_test::u16;
using Paths = std::vector<std::u16string>;

// A temporary folder's path as UrlEscapeW gives it: of its characters only the Windows separator is
// escaped (the temporary folders hold no blank, '%' or other character the escape touches).
std::u16string escaped(const std::u16string& folder) {
    std::u16string text;
    for (const char16_t unit : folder) {
        text += unit == u'\\' ? std::u16string(u"%5C") : std::u16string(1, unit);
    }
    return text;
}

struct Search {
    std::u16string query;
    Paths results;
};

class SearchRecorder : public plat::ui::SearchWindowUi {
public:
    void show(std::u16string_view query, const Paths& results) override {
        searches.push_back(Search{std::u16string(query), results});
    }
    std::vector<Search> searches;
};

class SearchBackend : public app_test::RecordingBackend {
public:
    plat::ui::SearchWindowUi& searchWindow() override { return window; }
    SearchRecorder window;
};

class SearchDlg : public testing::Test {
protected:
    void SetUp() override {
        auto backend = std::make_unique<SearchBackend>();
        m_pUi = backend.get();
        m_previous = plat::ui::installBackend(std::move(backend));
    }
    void TearDown() override { plat::ui::installBackend(std::move(m_previous)); }

    // Runs a hand-off request of menu type 4 and gives the one search it opened.
    Search search(const Paths& folders, const Paths& media) {
        const plat::UINT uMenuType = 4;
        VELQShellExtProc proc(Paths{}, Paths{}, folders, media, uMenuType);
        EXPECT_EQ(proc.run(), 1);
        EXPECT_EQ(m_pUi->window.searches.size(), 1u);
        return m_pUi->window.searches.empty() ? Search{} : m_pUi->window.searches.back();
    }

    TempDir m_dir;
    SearchBackend* m_pUi = nullptr;
    std::unique_ptr<plat::ui::Backend> m_previous;
};

TEST_F(SearchDlg, FoldersThenMediaBecomeLocationsAndOnlyTheirEncryptedFilesAreFound) {
    const std::string inside = m_dir.file("docs/deep/a.LQVZ");
    const std::string top = m_dir.file("docs/b.lqvz");
    m_dir.file("docs/c.txt");
    m_dir.file("docs/d.lqvz.txt");
    const std::string onMedium = m_dir.file("usb/e.lqvz");
    m_dir.file("elsewhere/f.lqvz");
    const std::string docs = m_dir.folder("docs");
    const std::string usb = m_dir.folder("usb");
    const Search found = search(Paths{u16(docs)}, Paths{u16(usb)});
    EXPECT_EQ(found.query, u"search-ms:query=*.lqvz&crumb=location:" + escaped(u16(docs)) +
                               u"&crumb=location:" + escaped(u16(usb)));
    EXPECT_EQ(found.results, (Paths{u16(top), u16(inside), u16(onMedium)}));  // sorted
}

TEST_F(SearchDlg, PercentAndBlanksInAPathAreEscapedAndTheFolderIsStillSearched) {
    const std::string file = m_dir.file("100% done/x.lqvz");
    const std::string folder = m_dir.folder("100% done");
    const Search found = search(Paths{u16(folder)}, Paths{});
    EXPECT_EQ(found.query, u"search-ms:query=*.lqvz&crumb=location:" +
                               escaped(u16(m_dir.path()) + plat::kPathSeparator) + u"100%25%20done");
    EXPECT_EQ(found.results, Paths{u16(file)});
}

TEST_F(SearchDlg, APathLongerThanTheBufferGivesAnEmptyLocationAndSparesTheOthers) {
    const std::u16string longPath = u"/" + std::u16string(300, u'n');
    const std::string file = m_dir.file("kept/y.lqvz");
    const std::string kept = m_dir.folder("kept");
    const Search found = search(Paths{longPath, u16(kept)}, Paths{});
    EXPECT_EQ(found.query, u"search-ms:query=*.lqvz&crumb=location:&crumb=location:" + escaped(u16(kept)));
    EXPECT_EQ(found.results, Paths{u16(file)});
}

TEST_F(SearchDlg, WithoutLocationsThePlainQuerySearchesTheHomeFolder) {
    const std::string file = m_dir.file("home/z.lqvz");
    ScopedEnv home("HOME", m_dir.path() + "/home");
    VELQShellExtProc proc(Paths{u"/ignored.txt"}, Paths{}, 4);
    EXPECT_EQ(proc.run(), 1);
    ASSERT_EQ(m_pUi->window.searches.size(), 1u);
    EXPECT_EQ(m_pUi->window.searches[0].query, u"search-ms:query=*.lqvz");
#ifdef _WIN32
    // Windows names the profile folder itself (HOME steers nothing there), and other files of its
    // user may lie below it: this one is among them.
    const Paths& results = m_pUi->window.searches[0].results;
    EXPECT_NE(std::find(results.begin(), results.end(), u16(file)), results.end());
#else
    EXPECT_EQ(m_pUi->window.searches[0].results, Paths{u16(file)});
#endif
}

}  // namespace
