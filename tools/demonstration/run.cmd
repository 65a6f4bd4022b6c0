@echo off
rem The part of tools/demonstration/run.sh that runs inside Windows; see there. Inputs and outputs: Z:\run\story.
set story=Z:\run\story
set packages=Z:\run\packages\arm64
set quiet=REINSTALL=ALL REINSTALLMODE=omus

echo filling the settings stores
copy /y %story%\ostrel-3.ini %SystemRoot%\ostrel.ini >nul
type %SystemRoot%\ostrel.ini > %story%\file.txt
reg import %story%\settings.reg >nul
reg query HKCU\Software\Quillfern\Ostrel /s > %story%\user.txt
reg query HKLM\SYSTEM\CurrentControlSet\Services\Ostrel\Settings /s > %story%\service.txt

echo installing the package
msiexec /i %packages%\client.msi /qn PROP_VERSION="" /l*v %story%\1.log
echo %errorlevel%> %story%\1.code
call :entry 1

echo running it over itself, settings in the file
copy /y %story%\ostrel-0.ini %SystemRoot%\ostrel.ini >nul
msiexec /i %packages%\client.msi /qn %quiet% /l*v %story%\2.log
echo %errorlevel%> %story%\2.code
call :entry 2

echo running it over itself, settings in the current user's registry
copy /y %story%\ostrel-1.ini %SystemRoot%\ostrel.ini >nul
msiexec /i %packages%\client.msi /qn %quiet% /l*v %story%\3.log
echo %errorlevel%> %story%\3.code
call :entry 3

echo upgrading to the next version, settings in the service's registry key
copy /y %story%\ostrel-2.ini %SystemRoot%\ostrel.ini >nul
msiexec /i %packages%\client-newer.msi /qn /l*v %story%\4.log
echo %errorlevel%> %story%\4.code
call :entry 4

echo removing it
msiexec /x %packages%\client-newer.msi /qn /l*v %story%\5.log
echo %errorlevel%> %story%\5.code
call :entry 5
goto :eof

:entry
reg query HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall /s > %story%\%1.entry
goto :eof
