# The platform layer of the Windows program: the plat:: calls forward to the Windows API (win32/), and
# nothing of the POSIX emulation (posix/) is built. Included by src/platform/CMakeLists.txt for WIN32.
target_sources(velq_platform PRIVATE
    win32/type_checks.cpp win32/basics.cpp win32/files.cpp win32/sync.cpp win32/mapping.cpp
    win32/threads.cpp win32/messages.cpp win32/windows.cpp win32/system.cpp win32/profile.cpp
    win32/language.cpp win32/security.cpp win32/shell.cpp win32/clipboard.cpp win32/placement.cpp win32/com.cpp
    win32/command_line.cpp)
target_link_libraries(velq_platform PUBLIC shlwapi shell32 user32 advapi32 ole32 gdiplus)
# Accounts and the user's folders, private streams and secret files, and started programs.
target_sources(velq_platform PRIVATE win32/user_account.cpp win32/streams.cpp win32/secret_files.cpp
    win32/child_process.cpp)
target_link_libraries(velq_platform PUBLIC netapi32 uuid)
# Windows 10 API level: the thread's preferred UI languages and LocaleNameToLCID.
target_compile_definitions(velq_platform PRIVATE _WIN32_WINNT=0x0A00 WINVER=0x0A00)

# LoadStringW reads the program's resources (generated from the same string table by src/ui/make_rc.py,
# linked by velq_add_windows_resources), in the language that the table's rule gives for the thread;
# posix/string_table.cpp is that rule and the table (velq_strings), which also serves useStringTable.
target_sources(velq_platform PRIVATE posix/string_table.cpp win32/resources.cpp)
target_link_libraries(velq_platform PRIVATE $<TARGET_NAME_IF_EXISTS:velq_strings>)

# format16 stays the layer's own formatter (posix/format.cpp, no system call in it) rather than the C
# runtime's _vsnwprintf: the debug log's lines are then the same bytes on every system, %n stays refused,
# and msvcrt lacks the hh, z, j and t sizes and writes exponents with three digits.
target_sources(velq_platform PRIVATE posix/format.cpp)
# The scripted UI's progress dialog and search are the backends' own, as on every system; the search walks
# the folders with the API's FindFirstFileW and matches names with the layer's patterns (no system call).
target_sources(velq_platform PRIVATE ui/backend_search.cpp posix/wildcard.cpp)

# WinBio: the simulated sensor, the empty backend and the backend over the system's winbio.dll
# (winbio/winbio_win32.cpp, chosen when VELQ_WINBIO is unset); there is no fprintd on Windows.
target_sources(velq_platform PRIVATE winbio/backend.cpp winbio/winbio_none.cpp winbio/sim_script.cpp
    winbio/winbio_win32.cpp
    $<IF:$<BOOL:${VELQ_WITH_SIM_SENSOR}>,winbio/winbio_sim.cpp,winbio/winbio_sim_missing.cpp>
    winbio/winbio_fprintd_missing.cpp)
target_include_directories(velq_platform PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>)

# The native UI (src/platform/ui/win32_*): the system's message boxes, the shell's progress dialog
# (plat::CoCreateInstance; the backends' own under the scripted UI), the error list's dialog 51
# (plat::CreateDialogParamW), the wait window and the key backup's password dialogs.
target_sources(velq_platform PRIVATE ui/win32_backend.cpp ui/win32_progress.cpp ui/backend_progress.cpp
    ui/win32_dialogs.cpp ui/win32_wait.cpp ui/win32_transfer.cpp ui/win32_dialog_template.cpp)
target_link_libraries(velq_platform PUBLIC comctl32 comdlg32 wtsapi32)

# The UI backends: the scripted UI (VELQ_UI=script, and for now the default) with its interaction kinds;
# the desktop UI's rules without GTK. The terminal UI is POSIX only (termios, /dev/tty, signals): not built.
target_sources(velq_platform PRIVATE
    ui/backend.cpp ui/messagebox.cpp ui/transcript.cpp ui/script_answers.cpp ui/script_backend.cpp
    ui/terminal_choice_none.cpp ui/silent_kinds.cpp ui/list_turn.cpp ui/script_kinds.cpp ui/wait_kinds.cpp
    ui/script_transfer.cpp ui/gtk_rules.cpp ui/gtk_missing.cpp)
