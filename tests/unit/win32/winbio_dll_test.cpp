// The backend over winbio.dll: a system without the library (Wine has none) or with a library that lacks
// the framework's functions gets a backend that fails as without a sensor, never a call through a missing
// function.
#include <gtest/gtest.h>

#include "winbio/winbio_win32.h"

namespace plat::winbio {
namespace {

void expectNoSensor(Backend& backend) {
    BOOLEAN enabled = 0;
    WINBIO_SETTING_SOURCE_TYPE source = WINBIO_SETTING_SOURCE_INVALID;
    EXPECT_EQ(backend.getEnabledSetting(&enabled, &source), S_OK);
    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T count = 7;
    EXPECT_EQ(backend.enumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(units, nullptr);
    WINBIO_SESSION_HANDLE session = 5;
    EXPECT_EQ(backend.openSession(WINBIO_TYPE_FINGERPRINT, WINBIO_POOL_SYSTEM, WINBIO_FLAG_DEFAULT, nullptr,
                                  0, WINBIO_DB_DEFAULT, &session),
              WINBIO_E_INVALID_UNIT);
    EXPECT_EQ(session, 0u);
    EXPECT_EQ(backend.identifyWithCallback(session, nullptr, nullptr), E_HANDLE);
}

TEST(Win32WinBioDll, AMissingLibraryGivesTheBackendOfNoSensor) {
    auto backend = makeWinBioDllBackend(u"velq-no-such-winbio.dll");
    ASSERT_NE(backend, nullptr);
    expectNoSensor(*backend);
}

TEST(Win32WinBioDll, ALibraryWithoutTheFrameworksFunctionsGivesTheBackendOfNoSensor) {
    auto backend = makeWinBioDllBackend(u"kernel32.dll");
    ASSERT_NE(backend, nullptr);
    expectNoSensor(*backend);
}

TEST(Win32WinBioDll, TheSystemsFrameworkAnswersTheSettingAndTheUnitList) {
    auto backend = makeWinBioDllBackend();
    ASSERT_NE(backend, nullptr);
    BOOLEAN enabled = 0;
    WINBIO_SETTING_SOURCE_TYPE source = WINBIO_SETTING_SOURCE_INVALID;
    EXPECT_EQ(backend->getEnabledSetting(&enabled, &source), S_OK);
    EXPECT_EQ(backend->getEnabledSetting(nullptr, &source), E_POINTER);
    WINBIO_UNIT_SCHEMA* units = nullptr;
    SIZE_T count = 0;
    ASSERT_EQ(backend->enumBiometricUnits(WINBIO_TYPE_FINGERPRINT, &units, &count), S_OK);
    if (units != nullptr) {
        EXPECT_GT(count, 0u);
        EXPECT_EQ(backend->free(units), S_OK);
    }
    EXPECT_EQ(backend->free(nullptr), E_POINTER);
}

}  // namespace
}  // namespace plat::winbio
