// The environment's values as UTF-8 on every system: on Windows the variables hold UTF-16 text, and a
// value with letters outside ASCII must come back as those letters, not as their ANSI code page bytes.
#include <gtest/gtest.h>

#include <string>

#include "plat/strings.h"
#include "plat/system.h"
#include "test_environment.h"

namespace {

constexpr const char* kName = "VELQ_ENVIRONMENT_TEST";
// "Grüße Σ": two-byte letters of the Latin-1 range and one that no Western code page has.
constexpr const char* kGreeting =
    "Gr\xC3\xBC\xC3\x9F"
    "e \xCE\xA3";

// What the system itself makes of %name%, in UTF-16: a witness that does not go through the call tested.
std::u16string expandedBySystem(const char* name) {
    const std::u16string source = u"%" + plat::fromUtf8(name) + u"%";
    std::u16string out(plat::ExpandEnvironmentStringsW(source.c_str(), nullptr, 0), u'\0');
    const plat::DWORD written =
        plat::ExpandEnvironmentStringsW(source.c_str(), out.data(), static_cast<plat::DWORD>(out.size()));
    out.resize(written > 0 ? written - 1 : 0);
    return out;
}

TEST(EnvironmentValue, LettersOutsideAsciiComeBackByteForByte) {
    const ScopedEnv greeting(kName, kGreeting);
    EXPECT_EQ(expandedBySystem(kName), u"Grüße Σ");
    EXPECT_EQ(plat::environmentValue(kName), std::optional<std::string>(kGreeting));
}

TEST(EnvironmentValue, AValueLongerThanAPathIsWhole) {
    std::string value;
    while (value.size() < 20000) {
        value += kGreeting;
    }
    const ScopedEnv longValue(kName, value.c_str());
    EXPECT_EQ(plat::environmentValue(kName), std::optional<std::string>(value));
}

TEST(EnvironmentValue, AnUnsetVariableHasNoValue) {
    const ScopedEnv removed(kName, nullptr);
    EXPECT_EQ(plat::environmentValue(kName), std::nullopt);
    setEnvironment(kName, "x");
    EXPECT_EQ(plat::environmentValue(kName), std::optional<std::string>("x"));
    setEnvironment(kName, nullptr);
    EXPECT_EQ(plat::environmentValue(kName), std::nullopt);
}

}  // namespace
