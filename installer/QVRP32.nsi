; Windows installer of the QVRP32 RP1210 driver, built by
; scripts/build_installer.sh, which defines VERSION, OUTFILE and the paths of
; the files it packs (DLL32, DLL64, MONITOR, VENDOR_INI, COMCONFIG_INI).
;
; It installs the driver the way RP1210 applications look for it: the DLLs
; in the system folders (32-bit in SysWOW64, 64-bit in System32), the vendor
; file C:\Windows\QVRP32.ini, and QVRP32 appended to APIImplementations in
; C:\Windows\RP121032.ini. It is a 64-bit installer for 64-bit Windows.

Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma
RequestExecutionLevel admin

!include "LogicLib.nsh"
!include "x64.nsh"

!define DRIVER "QVRP32"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\${DRIVER}"
!define MASTER_INI "$WINDIR\RP121032.ini"

Name "${DRIVER} RP1210 driver ${VERSION}"
OutFile "${OUTFILE}"
InstallDir "$PROGRAMFILES64\QV\${DRIVER}"
ShowInstDetails show
ShowUninstDetails show

VIProductVersion "${VERSION}.0"
VIAddVersionKey "ProductName" "${DRIVER} RP1210 driver"
VIAddVersionKey "CompanyName" "QV"
VIAddVersionKey "FileDescription" "${DRIVER} RP1210 driver setup"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" "QV"

Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

; --- APIImplementations list editing --------------------------------------
; NSIS has no split, so the list is walked one character at a time. Names
; are compared as whole entries without regard to case (like file names),
; so QVRP32X or OLDQVRP32 never count as ours.

!macro LIST_FUNCTIONS UN
; Trims spaces and tabs at both ends of $R7.
Function ${UN}TrimR7
  Push $R9
  lead:
    StrCpy $R9 $R7 1
    ${If} $R9 == " "
    ${OrIf} $R9 == "$\t"
      StrCpy $R7 $R7 "" 1
      Goto lead
    ${EndIf}
  trail:
    StrCpy $R9 $R7 1 -1
    ${If} $R9 == " "
    ${OrIf} $R9 == "$\t"
      StrCpy $R7 $R7 -1
      Goto trail
    ${EndIf}
  Pop $R9
FunctionEnd

; In: $R0 the list, $R1 a name. Out: $R2 the list without every entry equal
; to the name (the other entries kept as written, in their order), $R3 "1"
; when the name was listed, else "0".
Function ${UN}ListWithout
  Push $R4  ; the entry being read, as written
  Push $R5  ; the current character
  Push $R6  ; its index
  Push $R7  ; the entry, trimmed
  Push $R8  ; "1" once $R2 holds an entry
  StrCpy $R2 ""
  StrCpy $R3 0
  StrCpy $R4 ""
  StrCpy $R6 0
  StrCpy $R8 0
  next:
    StrCpy $R5 $R0 1 $R6
    IntOp $R6 $R6 + 1
    ${If} $R5 != ","
    ${AndIf} $R5 != ""
      StrCpy $R4 "$R4$R5"
      Goto next
    ${EndIf}
    StrCpy $R7 $R4
    Call ${UN}TrimR7
    ${If} $R7 == $R1
      StrCpy $R3 1
    ${ElseIf} $R8 == 1
      StrCpy $R2 "$R2,$R4"
    ${Else}
      StrCpy $R2 $R4
      StrCpy $R8 1
    ${EndIf}
    StrCpy $R4 ""
    StrCmp $R5 "" 0 next
  Pop $R8
  Pop $R7
  Pop $R6
  Pop $R5
  Pop $R4
FunctionEnd
!macroend
!insertmacro LIST_FUNCTIONS ""
!insertmacro LIST_FUNCTIONS "un."

; --- install ------------------------------------------------------------------

Function .onInit
  ${IfNot} ${RunningX64}
    MessageBox MB_OK|MB_ICONSTOP "${DRIVER} installs on 64-bit Windows only." /SD IDOK
    Abort
  ${EndIf}
  SetRegView 64
  SetShellVarContext all  ; $APPDATA is C:\ProgramData
FunctionEnd

Section "Driver"
  SetOutPath "$WINDIR\SysWOW64"
  File "/oname=${DRIVER}.dll" "${DLL32}"
  SetOutPath "$SYSDIR"
  File "/oname=${DRIVER}.dll" "${DLL64}"

  ; The vendor file describes the installed version, so it is replaced; its
  ; one setting a user may have changed (where the trace goes) is kept.
  ClearErrors
  ReadINIStr $0 "$WINDIR\${DRIVER}.ini" "VendorInformation" "DebugFile"
  SetOutPath "$WINDIR"
  File "/oname=${DRIVER}.ini" "${VENDOR_INI}"
  ${If} $0 != ""
    ReadINIStr $1 "$WINDIR\${DRIVER}.ini" "VendorInformation" "DebugFile"
    ${If} $0 != $1
      WriteINIStr "$WINDIR\${DRIVER}.ini" "VendorInformation" "DebugFile" $0
    ${EndIf}
  ${EndIf}

  ; The adapter settings are the user's: installed only when there are none.
  ; Its time stamp is kept so that uninstall can tell an untouched copy.
  CreateDirectory "$APPDATA\QV\Corvane"
  ${IfNot} ${FileExists} "$APPDATA\QV\Corvane\COMConfig.ini"
    SetOutPath "$APPDATA\QV\Corvane"
    File "/oname=COMConfig.ini" "${COMCONFIG_INI}"
    GetFileTime "$APPDATA\QV\Corvane\COMConfig.ini" $0 $1
    WriteRegStr HKLM "${UNINSTALL_KEY}" "COMConfigTime" "$0:$1"
  ${EndIf}
  CreateDirectory "$APPDATA\QV\log"

  SetOutPath "$INSTDIR"
  File "/oname=rp1210-monitor.exe" "${MONITOR}"
  WriteUninstaller "$INSTDIR\uninstall.exe"

  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${DRIVER} RP1210 driver"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "QV"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1

  ; Register last, once every file is in place. An existing entry means a
  ; reinstall or upgrade: the file is left as it is.
  ReadINIStr $R0 "${MASTER_INI}" "RP1210Support" "APIImplementations"
  StrCpy $R1 "${DRIVER}"
  Call ListWithout
  ${If} $R3 == 0
    StrCpy $R7 $R0
    Call TrimR7
    StrCpy $R9 $R7 1 -1
    ${If} $R7 == ""
    ${OrIf} $R9 == ","
      StrCpy $R0 "$R7${DRIVER}"
    ${Else}
      StrCpy $R0 "$R7,${DRIVER}"
    ${EndIf}
    ClearErrors
    WriteINIStr "${MASTER_INI}" "RP1210Support" "APIImplementations" $R0
    ${If} ${Errors}
      MessageBox MB_OK|MB_ICONSTOP "Cannot write ${MASTER_INI}." /SD IDOK
      Abort
    ${EndIf}
    DetailPrint "APIImplementations=$R0"
  ${EndIf}
SectionEnd

; --- uninstall ----------------------------------------------------------------

Function un.onInit
  SetRegView 64
  SetShellVarContext all
FunctionEnd

Section "Uninstall"
  ; Unregister first, so no application picks a half-removed driver. Only
  ; our entry goes; the rest of the file stays as it is.
  ReadINIStr $R0 "${MASTER_INI}" "RP1210Support" "APIImplementations"
  StrCpy $R1 "${DRIVER}"
  Call un.ListWithout
  ${If} $R3 == 1
    WriteINIStr "${MASTER_INI}" "RP1210Support" "APIImplementations" $R2
  ${EndIf}

  ; A DLL an application still holds goes at the next restart.
  Delete /REBOOTOK "$WINDIR\SysWOW64\${DRIVER}.dll"
  Delete /REBOOTOK "$SYSDIR\${DRIVER}.dll"
  Delete "$WINDIR\${DRIVER}.ini"

  ; The adapter settings go only when they are the untouched copy this
  ; installer wrote; a user's own or edited file is kept. The log folder
  ; goes only when empty, so traces a user may still need survive.
  ReadRegStr $2 HKLM "${UNINSTALL_KEY}" "COMConfigTime"
  ${If} $2 != ""
  ${AndIf} ${FileExists} "$APPDATA\QV\Corvane\COMConfig.ini"
    GetFileTime "$APPDATA\QV\Corvane\COMConfig.ini" $0 $1
    ${If} "$0:$1" == $2
      Delete "$APPDATA\QV\Corvane\COMConfig.ini"
    ${EndIf}
  ${EndIf}
  RMDir "$APPDATA\QV\Corvane"
  RMDir "$APPDATA\QV\log"
  RMDir "$APPDATA\QV"

  DeleteRegKey HKLM "${UNINSTALL_KEY}"
  Delete "$INSTDIR\rp1210-monitor.exe"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  RMDir "$INSTDIR\.."
SectionEnd
