// The search for encrypted files: the query that menu type 4 hands to the shell, and what the platform's
// search finds for it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/VELQShellExtProc.h"
#include "app_test_support.h"

namespace {

using app_test::ScopedEnv;
using app_test::TempDir;
using app_test::u16;
using Paths = std::vector<std::u16string>;

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
    const Search found = search(Paths{u16(m_dir.path() + "/docs")}, Paths{u16(m_dir.path() + "/usb")});
    EXPECT_EQ(found.query, u"search-ms:query=*.lqvz&crumb=location:" + u16(m_dir.path()) +
                               u"/docs&crumb=location:" + u16(m_dir.path()) + u"/usb");
    EXPECT_EQ(found.results, (Paths{u16(top), u16(inside), u16(onMedium)}));  // sorted
}

TEST_F(SearchDlg, PercentAndBlanksInAPathAreEscapedAndTheFolderIsStillSearched) {
    const std::string file = m_dir.file("100% done/x.lqvz");
    const Search found = search(Paths{u16(m_dir.path() + "/100% done")}, Paths{});
    EXPECT_EQ(found.query, u"search-ms:query=*.lqvz&crumb=location:" + u16(m_dir.path()) + u"/100%25%20done");
    EXPECT_EQ(found.results, Paths{u16(file)});
}

TEST_F(SearchDlg, APathLongerThanTheBufferGivesAnEmptyLocationAndSparesTheOthers) {
    const std::u16string longPath = u"/" + std::u16string(300, u'n');
    const std::string file = m_dir.file("kept/y.lqvz");
    const Search found = search(Paths{longPath, u16(m_dir.path() + "/kept")}, Paths{});
    EXPECT_EQ(found.query,
              u"search-ms:query=*.lqvz&crumb=location:&crumb=location:" + u16(m_dir.path()) + u"/kept");
    EXPECT_EQ(found.results, Paths{u16(file)});
}

TEST_F(SearchDlg, WithoutLocationsThePlainQuerySearchesTheHomeFolder) {
    const std::string file = m_dir.file("home/z.lqvz");
    ScopedEnv home("HOME", m_dir.path() + "/home");
    VELQShellExtProc proc(Paths{u"/ignored.txt"}, Paths{}, 4);
    EXPECT_EQ(proc.run(), 1);
    ASSERT_EQ(m_pUi->window.searches.size(), 1u);
    EXPECT_EQ(m_pUi->window.searches[0].query, u"search-ms:query=*.lqvz");
    EXPECT_EQ(m_pUi->window.searches[0].results, Paths{u16(file)});
}

}  // namespace
