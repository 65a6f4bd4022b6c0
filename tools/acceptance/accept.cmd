@echo off
rem Tests hxsetup @VERSION@ on this Windows (@PROCESSOR@). accept.cmd /help describes it.
setlocal EnableExtensions DisableDelayedExpansion
set "hxFolder=%~dp0"
if "%hxFolder:~-1%"=="\" set "hxFolder=%hxFolder:~0,-1%"
set "hxProgram=%hxFolder%\bin\accept.exe"
set "hxProcessor=@PROCESSOR@"
set "hxReport="
set "hxFilter="
set "hxYes="
set "hxInUse="
set "hxInstall=yes"
rem Windows asks before each start of a program that was downloaded, also in the middle of the run. The person has started
rem this script on purpose.
set "SEE_MASK_NOZONECHECKS=1"

:words
if "%~1"=="" goto given
if /i "%~1"=="/help" goto help
if "%~1"=="/?" goto help
if /i "%~1"=="/yes" set "hxYes=yes" & shift & goto words
if /i "%~1"=="/in-use" set "hxInUse=/in-use" & shift & goto words
if /i "%~1"=="/no-install" set "hxInstall=" & shift & goto words
if /i "%~1"=="/filter" goto filter
if /i "%~1"=="/report" goto report
echo accept.cmd does not take "%~1". accept.cmd /help lists what it takes.
exit /b 2

:filter
if "%~2"=="" echo accept.cmd: /filter needs a filter of tests, such as "Path*".& exit /b 2
set "hxFilter=%~2"
shift
shift
goto words

:report
if "%~2"=="" echo accept.cmd: /report needs a new folder.& exit /b 2
set "hxReport=%~f2"
if "%hxReport:~-1%"=="\" set "hxReport=%hxReport:~0,-1%"
shift
shift
goto words

:help
echo usage: accept.cmd [/yes] [/no-install] [/in-use] [/filter FILTER] [/report FOLDER]
echo.
echo Tests hxsetup on this Windows, as an administrator, and writes a folder with a report and all logs.
echo The last tests install, upgrade and remove packages: use a machine that you can reset.
echo.
echo   /yes             do not ask before the tests that change this machine
echo   /no-install      leave out the tests that change this machine
echo   /in-use          go on although the machine already has what the tests would change or delete
echo   /filter FILTER   only the tests that match this GoogleTest filter, such as "Path*"
echo   /report FOLDER   the new folder of the report; without it, "report" beside this file, with a number if needed
echo.
echo The exit status is 0 if all tests passed, 1 if not, and 2 if none was run. The first line of report.txt says which.
exit /b 0

:given
echo hxsetup @VERSION@, tests for %hxProcessor%
rem A 32-bit prompt, and one that is emulated, name another processor than the machine's.
set "hxMachine=%PROCESSOR_ARCHITECTURE%"
if not "%PROCESSOR_ARCHITEW6432%"=="" set "hxMachine=%PROCESSOR_ARCHITEW6432%"
if "%PROCESSOR_IDENTIFIER:~0,3%"=="ARM" set "hxMachine=ARM64"
if "%hxMachine%"=="x86" goto only32
if "%hxProcessor%"=="arm64" if not "%hxMachine%"=="ARM64" goto other
if not exist "%hxProgram%" goto missing
if not exist "%hxFolder%\files.txt" goto missing
if exist "%SystemRoot%\System32\certutil.exe" goto hash
:checked

rem On the drive of Windows, which gives short names, and with a short path.
set "hxTemp=%SystemDrive%\hxsetup-acceptance"
mkdir "%hxTemp%" >nul 2>nul
set "TEMP=%hxTemp%"
set "TMP=%hxTemp%"
set "hxNoInstall="
if not defined hxInstall set "hxNoInstall=/no-install"
if defined hxReport goto checkreport
"%hxProgram%" check %hxProcessor% "%hxFolder%" %hxInUse% %hxNoInstall%
goto answered
:checkreport
"%hxProgram%" check %hxProcessor% "%hxFolder%" %hxInUse% %hxNoInstall% /report "%hxReport%"
:answered
set "hxCode=%ERRORLEVEL%"
if "%hxCode%"=="0" goto ready
rmdir "%hxTemp%" >nul 2>nul
if "%hxCode%"=="2" echo Nothing was run and nothing was changed.& exit /b 2
if "%hxMachine%"=="ARM64" if "%hxProcessor%"=="x64" goto notemulated
echo   refused: bin\accept.exe cannot be started: extract the archive again, into an empty folder.
echo   If Windows says that it blocked the program: turn off Smart App Control, or let the policy allow this folder.
exit /b 2

:notemulated
echo   refused: this Windows does not run x64 programs on ARM64: use the archive for arm64, or Windows 11.
exit /b 2

:hash
set "hxHash="
for /f "skip=1 delims=" %%h in ('%SystemRoot%\System32\certutil.exe -hashfile "%hxProgram%" SHA256') do if not defined hxHash set "hxHash=%%h"
rem Older versions put blanks between the bytes. A line of another length is no hash, and accept.exe checks itself, too.
if not defined hxHash goto checked
set "hxHash=%hxHash: =%"
if "%hxHash:~63,1%"=="" goto checked
if not "%hxHash:~64,1%"=="" goto checked
if /i "%hxHash%"=="@HASH@" goto checked
echo   refused: bin\accept.exe is damaged: extract the archive again, into an empty folder.
exit /b 2

:only32
echo   refused: this is a 32-bit Windows. The library is for 64-bit Windows.
exit /b 2

:other
echo   refused: this archive is for arm64, and this machine is x64: use the archive for x64.
exit /b 2

:missing
echo   refused: the archive is not complete: extract all of it again, into an empty folder. bin\accept.exe or
echo   files.txt is missing.
exit /b 2

:ready
if not defined hxInstall goto agreed
if defined hxYes goto agreed
echo.
echo The last tests install, upgrade and remove packages on this machine, create and delete accounts and services, and
echo write to the registry. Use a machine that you can reset.
set "hxAnswer="
set /p "hxAnswer=Go on? (y/n) "
if /i "%hxAnswer%"=="y" goto agreed
if /i "%hxAnswer%"=="yes" goto agreed
echo Nothing was run and nothing was changed. accept.cmd /no-install runs only tests that change nothing.
goto stop

:agreed
if defined hxReport goto named
set "hxReport=%hxFolder%\report"
set /a hxNumber=1
:number
if not exist "%hxReport%" goto named
set /a hxNumber+=1
set "hxReport=%hxFolder%\report-%hxNumber%"
goto number
:named
if exist "%hxReport%" echo   refused: "%hxReport%" exists: name a new folder for the report.& goto stop
mkdir "%hxReport%"
if not exist "%hxReport%" echo   refused: "%hxReport%" cannot be created: name another folder with /report.& goto stop
set "HX_PROCESSOR=%hxProcessor%"
set "HX_PACKAGES=%hxFolder%\packages"

set "HX_LIBRARY_DIR=%hxFolder%\libraries"
call :run unit 3000 unit_tests.exe
set "HX_LIBRARY_DIR=%hxFolder%\checked"
call :run unit-checked 3000 unit_tests.exe
set "HX_LIBRARY_DIR=%hxFolder%\libraries"
call :run actions 3000 action_tests.exe
if not defined hxInstall goto judge
call :run install 9000 install_tests.exe

:judge
if defined hxFilter goto judgefiltered
"%hxProgram%" report "%hxReport%" %hxProcessor% "%hxFolder%" %hxNoInstall%
goto judged
:judgefiltered
"%hxProgram%" report "%hxReport%" %hxProcessor% "%hxFolder%" %hxNoInstall% /filter "%hxFilter%"
:judged
set "hxCode=%ERRORLEVEL%"
rmdir "%hxTemp%" >nul 2>nul
echo The report and all logs: "%hxReport%"
if not exist "%hxReport%\report.txt" echo The report could not be written: bin\accept.exe was blocked or is damaged.& exit /b 1
exit /b %hxCode%

:stop
rmdir "%hxTemp%" >nul 2>nul
exit /b 2

rem run LEVEL SECONDS PROGRAM: runs a test program with its time limit.
:run
echo.
echo %1: %3, at most %2 seconds
if defined hxFilter goto filtered
"%hxProgram%" run "%hxReport%" %1 %2 "%hxFolder%\bin\%3"
goto :eof
:filtered
"%hxProgram%" run "%hxReport%" %1 %2 "%hxFolder%\bin\%3" "%hxFilter%"
goto :eof
