# The platform tests of the Windows program: the shared tests whose cases describe Windows behaviour, run
# against the real API (under wine64 in a 64-bit tree), and this folder's tests of the Win32 forwards.
# Included by tests/unit/CMakeLists.txt for WIN32 in place of the platform folder's glob (and by this
# folder's CMakeLists.txt, for a Windows tree that adds only the parts that build there).
#
# gtk_rules runs too: the Windows password dialogs check with the desktop UI's rules.
# Left out whole, because they test only the POSIX emulation or backends that the Windows program does not
# build: ui_tty (the terminal UI: termios and pseudo-terminals), winbio_fprintd (the fprintd daemon on the
# system D-Bus), profile (the emulation's own INI parser), security (POSIX accounts as SIDs S-1-22-...),
# named_objects (the runtime folder's files). ui_transfer and ui_progress_kinds leave out their terminal
# cases by #ifndef _WIN32, ui_transcript its second process (fork) and the new file's mode; strings, files,
# find, paths, mapping, system and urlescape their cases of what POSIX alone has (errno, modes, links,
# mounts, file size limits, the private temporary folder's rules), each with its reason.
set(velq_win32_shared_tests strings files find paths mapping system environment urlescape sync threads messages
    windows format private_files ui_script ui_transcript ui_transfer ui_progress_kinds progress_object
    errorlist_dialog winbio_script winbio_sim gtk_rules)
get_filename_component(velq_unit_dir ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
set(velq_win32_test_sources)
foreach(name IN LISTS velq_win32_shared_tests)
    list(APPEND velq_win32_test_sources ${velq_unit_dir}/platform/${name}_test.cpp)
endforeach()
# Cases left out, because the Windows API does what the POSIX model simplifies (the model's promise is
# what the core relies on; these cases pin down more):
# - WindowCreation.ProcedureSees*: the API sends WM_NCCALCSIZE between WM_NCCREATE and WM_CREATE.
# - WindowCreation.ClassesAre*: an unknown class gives 1411 (ERROR_CLASS_DOES_NOT_EXIST) under Wine.
# - WindowDestruction.SendsDestroy*: a destroyed handle's DestroyWindow gives 5 under Wine, not 1400.
# - WindowData.FindWindow*: FindWindowW follows the z-order, not the order of creation.
# - ThreadPosts.PostsToEnded*: ids that never named a thread give 87 (ERROR_INVALID_PARAMETER).
# - PeekMessage.RangeFilter*: a posted quit is seen whatever the filter's range.
# - WaitFailures.*, WaitPolling.*: objects of the POSIX model's own (KernelObject, Waitable).
# - ErrorListDialog.IsCreatedHidden*: the dialog procedure also gets WM_SETFONT and WM_NOTIFYFORMAT before
#   WM_INITDIALOG and the activation messages after it, and under Wine GetDlgItem of an id that no control
#   has leaves the last error 0 (Windows gives 1421, ERROR_CONTROL_ID_NOT_FOUND).
# - Clipboard.OnlyOneThreadHoldsIt*: Wine lets a second thread open a clipboard that another thread holds
#   without a window (it compares the owning windows only).
# - Files.PositionsAboveThirtyTwoBitsNeedTheHighPart*: Wine's SetFilePointer without the high part gives the
#   position's low half where Windows refuses it (the core moves with SetFilePointerEx).
set(velq_win32_excluded_cases "-Files.PositionsAboveThirtyTwoBitsNeedTheHighPart*:WindowCreation.ProcedureSees*:WindowCreation.ClassesAre*:WindowDestruction.SendsDestroy*:WindowData.FindWindow*:ThreadPosts.PostsToEnded*:PeekMessage.RangeFilter*:WaitFailures.*:WaitPolling.*:ErrorListDialog.IsCreatedHidden*:Clipboard.OnlyOneThreadHoldsIt*")

file(GLOB velq_win32_own_tests CONFIGURE_DEPENDS ${velq_unit_dir}/win32/*.cpp)

add_executable(velq_platform_tests ${velq_win32_test_sources} ${velq_win32_own_tests})
target_include_directories(velq_platform_tests PRIVATE ${velq_unit_dir})
target_link_libraries(velq_platform_tests PRIVATE velq_platform GTest::gtest GTest::gtest_main GTest::gmock
    velq_warnings)
# The program's resources (string table, dialog 51, pictures, icons, version, manifest), as the program
# links them; resources_test.cpp reads every one of them back.
velq_add_windows_resources(velq_platform_tests program)
target_link_libraries(velq_platform_tests PRIVATE comctl32 version)
target_compile_definitions(velq_platform_tests PRIVATE VELQ_VERSION_MAJOR=${PROJECT_VERSION_MAJOR}
    VELQ_VERSION_MINOR=${PROJECT_VERSION_MINOR} VELQ_VERSION_PATCH=${PROJECT_VERSION_PATCH}
    VELQ_VERSION_TEXT=L"${PROJECT_VERSION}")
# Windows need a window driver: under Wine without a display, the prefix's null driver.
if(CMAKE_CROSSCOMPILING_EMULATOR)
    set_target_properties(velq_platform_tests PROPERTIES CROSSCOMPILING_EMULATOR
        "${velq_unit_dir}/win32/wine-null-graphics.sh;${CMAKE_CROSSCOMPILING_EMULATOR}")
endif()
# Each case with Wine's heap checks, as the other test programs (velq_wine_heap_checks).
gtest_discover_tests(velq_platform_tests DISCOVERY_TIMEOUT 120 PROPERTIES LABELS platform
    ENVIRONMENT "VELQ_WINEDEBUG=warn+heap" FAIL_REGULAR_EXPRESSION "warn:heap"
    TEST_FILTER "${velq_win32_excluded_cases}")
