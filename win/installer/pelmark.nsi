; The Pelmark setup program, built by makensis from CMake (target `installer`) for one bitness.
; makensis -DVERSION=1.2.3 -DARCH=x86_64|i686 -DBIN=<build folder> -DGUIDE=<guide folder>
;          -DSAMPLES=<samples folder> -DICON=<pelmark.ico> -DOUTFILE=<setup.exe> pelmark.nsi
;
; QuickBooks add-ons install per machine: the program goes under Program Files, the user's files
; live in the shared data folder the program itself uses (Public Documents\Corvalt\Pelmark\),
; which the setup makes and an uninstall keeps. The SDK's request processor (QBXMLRP2) comes
; with QuickBooks and is never installed from here.
Unicode true
!if ${ARCH} == "x86_64"
    ; A 64-bit setup program: 32-bit Windows refuses to start it with its own message ("This app
    ; can't run on your PC"), and Wine64 without the 32-bit Wine runs it as it is.
    Target amd64-unicode
!endif
SetCompressor /SOLID lzma
RequestExecutionLevel admin
ManifestDPIAware true

!include MUI2.nsh
!include LogicLib.nsh
!include FileFunc.nsh

!define PRODUCT "Pelmark"
!define COMPANY "Corvalt"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\${PRODUCT}"
!define MAIN_WINDOW_CLASS "PelmarkMainForm"
; Relative to the shared Documents folder ($DOCUMENTS with the all-users context).
!define DATA_FOLDER "${COMPANY}\${PRODUCT}"

Name "${PRODUCT} ${VERSION}"
OutFile "${OUTFILE}"
BrandingText "${COMPANY} ${PRODUCT} ${VERSION} (${ARCH})"
!if ${ARCH} == "x86_64"
    InstallDir "$PROGRAMFILES64\${COMPANY}\${PRODUCT}"
!else
    InstallDir "$PROGRAMFILES\${COMPANY}\${PRODUCT}"
!endif
; An update goes where the last installation went.
InstallDirRegKey HKLM "${UNINSTALL_KEY}" "InstallLocation"

VIProductVersion "${VERSION}.0"
VIAddVersionKey "ProductName" "${PRODUCT}"
VIAddVersionKey "CompanyName" "${COMPANY}"
VIAddVersionKey "FileDescription" "${PRODUCT} ${VERSION} setup (${ARCH})"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" "Copyright (C) ${COMPANY}"

!define MUI_ICON "${ICON}"
!define MUI_UNICON "${ICON}"
!define MUI_ABORTWARNING
!define MUI_FINISHPAGE_RUN "$INSTDIR\pelmark.exe"
!define MUI_FINISHPAGE_SHOWREADME "$INSTDIR\Guide\user-guide.html"
!define MUI_FINISHPAGE_SHOWREADME_TEXT "Open the user guide"
!insertmacro MUI_PAGE_WELCOME
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

; Setup and uninstall replace or remove pelmark.exe, which Windows refuses while it runs: ask the
; user to end it (silent mode cannot ask, so it stops with exit code 3 and changes nothing).
!macro WaitUntilClosed
    ${Do}
        FindWindow $0 "${MAIN_WINDOW_CLASS}"
        ${If} $0 == 0
            ${Break}
        ${EndIf}
        MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION \
            "${PRODUCT} is running. Please end it (End in its window), then choose Retry." \
            /SD IDCANCEL IDRETRY +3
        SetErrorLevel 3
        Quit
    ${Loop}
!macroend

!macro ViewForBitness
    SetShellVarContext all
    !if ${ARCH} == "x86_64"
        SetRegView 64
    !endif
!macroend

Function .onInit
    !insertmacro ViewForBitness
    !insertmacro WaitUntilClosed
FunctionEnd

Section "Pelmark" SecMain
    SectionIn RO
    SetOutPath "$INSTDIR"
    File "${BIN}/pelmark.exe"
    File "${BIN}/pelmark-cli.exe"
    ; Not beside the program: on start the program moves every file of its Program Files folder
    ; into the data folder (older versions kept their settings there).
    SetOutPath "$INSTDIR\Guide"
    File "${GUIDE}/*.*"
    SetOutPath "$INSTDIR\Samples"
    File "${SAMPLES}/Pelmark.ini"
    File "${SAMPLES}/Items.iif"
    SetOutPath "$INSTDIR"
    WriteUninstaller "$INSTDIR\uninstall.exe"

    ; The data folder the program uses; what is in it (settings, logs, journals) stays as it is.
    CreateDirectory "$DOCUMENTS\${DATA_FOLDER}"

    CreateShortcut "$SMPROGRAMS\${PRODUCT}.lnk" "$INSTDIR\pelmark.exe" "" "$INSTDIR\pelmark.exe" 0
    CreateShortcut "$SMPROGRAMS\${PRODUCT} User Guide.lnk" "$INSTDIR\Guide\user-guide.html"

    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT} ${VERSION} (${ARCH})"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "${COMPANY}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\pelmark.exe"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
    WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
    ${GetSize} "$INSTDIR" "/S=0K" $0 $1 $2
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" $0
SectionEnd

Function un.onInit
    !insertmacro ViewForBitness
    !insertmacro WaitUntilClosed
FunctionEnd

; Only what the setup put down: the folder may be one the user chose and holds other files.
Section "Uninstall"
    Delete "$INSTDIR\pelmark.exe"
    Delete "$INSTDIR\pelmark-cli.exe"
    Delete "$INSTDIR\Samples\Pelmark.ini"
    Delete "$INSTDIR\Samples\Items.iif"
    RMDir "$INSTDIR\Samples"
    !include "${GUIDE_LIST}"
    RMDir "$INSTDIR\Guide"
    Delete "$INSTDIR\uninstall.exe"
    RMDir "$INSTDIR"
    Delete "$SMPROGRAMS\${PRODUCT}.lnk"
    Delete "$SMPROGRAMS\${PRODUCT} User Guide.lnk"
    DeleteRegKey HKLM "${UNINSTALL_KEY}"

    ; Settings, logs and undo journals stay unless the user asks (/REMOVEDATA when silent).
    ${GetParameters} $0
    ClearErrors
    ${GetOptions} $0 "/REMOVEDATA" $1
    ${If} ${Errors}
        MessageBox MB_YESNO|MB_DEFBUTTON2|MB_ICONQUESTION \
            "Also remove your ${PRODUCT} settings, logs and undo journals in $DOCUMENTS\${DATA_FOLDER}?" \
            /SD IDNO IDNO keep
    ${EndIf}
    RMDir /r "$DOCUMENTS\${DATA_FOLDER}"
    RMDir "$DOCUMENTS\${COMPANY}"
    RMDir /r "$APPDATA\${DATA_FOLDER}"
    RMDir "$APPDATA\${COMPANY}"
    keep:
SectionEnd
