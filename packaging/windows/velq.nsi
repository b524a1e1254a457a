; The installer of VELQ for Windows (makensis from NSIS 3). Per user: no administrator rights, the programs
; in %LOCALAPPDATA%\Programs\VELQ, Explorer's entries under HKCU\Software\Classes, an uninstaller that
; takes away all of it. Made by the `installer` target of a Windows tree (packaging/windows/CMakeLists.txt):
;
;   makensis -DVELQ_BIN=<folder of the two programs> -DVELQ_OUT=<installer> -DVELQ_VERSION=x.y.z
;            [-DVELQ_WIN64] velq.nsi
;
; The 32-bit installer is the product; VELQ_WIN64 makes the same installer of the 64-bit programs with a
; 64-bit installer program (what the tests run under wine64, which runs no 32-bit program here).
;
; The entries, and which of the program's roads each reaches:
;   *\shell\VELQEncrypt, Directory\shell\VELQEncrypt     velqw collect encrypt "%1" -> one hand-off
;   VELQ.lqvz\shell\VELQDecrypt                          velqw collect decrypt "%1" -> one hand-off
;   Directory\shell\VELQSearch, Drive\shell\VELQSearch   velqw collect search "%1" (%1)
;   .lqvz -> VELQ.lqvz, its open (double-click)          VELQFileEncrypt "%1"       -> the plain path
; Explorer starts a static verb once per selected item; `velq collect` makes the invocations of one
; selection meet and hand all items over as one request (tools/velq/collect.h). MultiSelectModel Player
; offers the verbs for up to 100 items. velqw.exe is velq.exe without a console window (windowless.py).

Unicode true
!ifndef VELQ_BIN
  !error "VELQ_BIN: the folder that holds VELQFileEncrypt.exe, velq.exe and velqw.exe"
!endif
!ifndef VELQ_OUT
  !error "VELQ_OUT: the installer to write"
!endif
!ifndef VELQ_VERSION
  !define VELQ_VERSION "0.0.0"
!endif
!ifdef VELQ_WIN64
  Target amd64-unicode
!endif

!define CLASSES "Software\Classes"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\VELQ"
!define PROGID "VELQ.lqvz"

Name "VELQ"
OutFile "${VELQ_OUT}"
RequestExecutionLevel user
InstallDir "$LOCALAPPDATA\Programs\VELQ"
SetCompressor /SOLID lzma
ShowInstDetails nevershow
ShowUninstDetails nevershow

VIProductVersion "${VELQ_VERSION}.0"
VIAddVersionKey "ProductName" "VELQ"
VIAddVersionKey "FileDescription" "VELQ installer"
VIAddVersionKey "FileVersion" "${VELQ_VERSION}"
VIAddVersionKey "ProductVersion" "${VELQ_VERSION}"
VIAddVersionKey "LegalCopyright" "The VELQ developers"

Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

; Explorer rereads the file types and their entries (SHChangeNotify with SHCNE_ASSOCCHANGED), through the
; System plug-in, which Debian's NSIS has for 32-bit installers only: the 64-bit one leaves it out (Wine,
; where it runs, has no Explorer to tell).
!macro VELQ_TELL_EXPLORER
  !ifndef VELQ_WIN64
    System::Call 'shell32::SHChangeNotify(i 0x08000000, i 0, p 0, p 0)'
  !endif
!macroend

; A verb of `class` that runs velq collect `verb` with the selected item, `item` being "%1" (quoted: paths
; hold blanks) or, for drives, %1 alone: a drive is "C:\", and a backslash before a closing quote would
; escape the quote when the command line is split into arguments.
!macro VELQ_VERB class key text verb item
  WriteRegStr HKCU "${CLASSES}\${class}\shell\${key}" "" "${text}"
  WriteRegStr HKCU "${CLASSES}\${class}\shell\${key}" "Icon" "$INSTDIR\VELQFileEncrypt.exe,-12"
  WriteRegStr HKCU "${CLASSES}\${class}\shell\${key}" "MultiSelectModel" "Player"
  WriteRegStr HKCU "${CLASSES}\${class}\shell\${key}\command" "" '"$INSTDIR\velqw.exe" collect ${verb} ${item}'
!macroend

; Removes a key of ours, then the parents that only it filled (they may have been made for it).
!macro VELQ_REMOVE_VERB class key
  DeleteRegKey HKCU "${CLASSES}\${class}\shell\${key}"
  DeleteRegKey /ifempty HKCU "${CLASSES}\${class}\shell"
  DeleteRegKey /ifempty HKCU "${CLASSES}\${class}"
!macroend

Section "VELQ"
  SetOutPath "$INSTDIR"
  File "${VELQ_BIN}\VELQFileEncrypt.exe"
  File "${VELQ_BIN}\velq.exe"
  File "${VELQ_BIN}\velqw.exe"
  WriteUninstaller "$INSTDIR\uninstall.exe"

  WriteRegStr HKCU "${CLASSES}\.lqvz" "" "${PROGID}"
  WriteRegStr HKCU "${CLASSES}\${PROGID}" "" "VELQ encrypted file"
  WriteRegStr HKCU "${CLASSES}\${PROGID}\DefaultIcon" "" "$INSTDIR\VELQFileEncrypt.exe,-12"
  WriteRegStr HKCU "${CLASSES}\${PROGID}\shell" "" "open"
  WriteRegStr HKCU "${CLASSES}\${PROGID}\shell\open\command" "" '"$INSTDIR\VELQFileEncrypt.exe" "%1"'
  !insertmacro VELQ_VERB "${PROGID}" VELQDecrypt "Decrypt" decrypt '"%1"'
  !insertmacro VELQ_VERB "*" VELQEncrypt "Encrypt" encrypt '"%1"'
  ; An encrypted file is offered Decrypt, not Encrypt once more.
  WriteRegStr HKCU "${CLASSES}\*\shell\VELQEncrypt" "AppliesTo" "NOT System.FileExtension:=.lqvz"
  !insertmacro VELQ_VERB Directory VELQEncrypt "Encrypt" encrypt '"%1"'
  !insertmacro VELQ_VERB Directory VELQSearch "Search for encrypted files" search '"%1"'
  !insertmacro VELQ_VERB Drive VELQSearch "Search for encrypted files" search %1

  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayName" "VELQ"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayVersion" "${VELQ_VERSION}"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\VELQFileEncrypt.exe"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKCU "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKCU "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoRepair" 1
  !insertmacro VELQ_TELL_EXPLORER
SectionEnd

Section "Uninstall"
  Delete "$INSTDIR\VELQFileEncrypt.exe"
  Delete "$INSTDIR\velq.exe"
  Delete "$INSTDIR\velqw.exe"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"

  ; .lqvz only while it still names our file type: another program may have taken it over since.
  ReadRegStr $0 HKCU "${CLASSES}\.lqvz" ""
  StrCmp $0 "${PROGID}" 0 +2
    DeleteRegKey HKCU "${CLASSES}\.lqvz"
  DeleteRegKey HKCU "${CLASSES}\${PROGID}"
  !insertmacro VELQ_REMOVE_VERB "*" VELQEncrypt
  !insertmacro VELQ_REMOVE_VERB Directory VELQEncrypt
  !insertmacro VELQ_REMOVE_VERB Directory VELQSearch
  !insertmacro VELQ_REMOVE_VERB Drive VELQSearch
  DeleteRegKey HKCU "${UNINSTALL_KEY}"
  !insertmacro VELQ_TELL_EXPLORER
SectionEnd
