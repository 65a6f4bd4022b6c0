@echo off
rem The part of tools/demonstration/run-client.sh that runs inside Windows; see there. The outputs go to Z:\run\client.
set story=Z:\run\client
set packages=Z:\run\packages\arm64
set stand-in=Z:\run\arm64\agent.exe
set client=%ProgramFiles%\Halvorstead\Ostrel
set elsewhere=C:\Elsewhere
set hook=HKLM\Software\Microsoft\Windows NT\CurrentVersion\Windows

echo preparing a machine whose list already names another library
reg add "%hook%" /v AppInit_DLLs /d elsewhere.dll /f >nul
reg add "%hook%" /v LoadAppInit_DLLs /t REG_DWORD /d 0 /f >nul
call :state machine

echo installing the older client
msiexec /i %packages%\client.msi /qn /l*v %story%\older.log
echo %errorlevel%> %story%\older.code

echo using it: two agents, two tools, an audit
mkdir %elsewhere%
copy /y %stand-in% %elsewhere%\osua.exe >nul
copy /y %stand-in% %elsewhere%\audra.exe >nul
copy /y %stand-in% %elsewhere%\tollgate.exe >nul
start "" "%client%\osua.exe"
start "" %elsewhere%\osua.exe
start "" %elsewhere%\audra.exe AudraClass Audra
start "" %elsewhere%\tollgate.exe Tollgate Ostrel 1
copy /y %story%\audit "%ProgramData%\Ostrel Audit" >nul
call :state before

echo upgrading it to the next version
msiexec /i %packages%\client-newer.msi /qn PROP_SILENCE=-1 PROP_RESETAUDIT=1 PROP_TASKUSER=auditor PROP_TASKPASS=none PROP_TASKHOUR=3 /l*v %story%\upgrade.log
echo %errorlevel%> %story%\upgrade.code
call :state after

echo removing it
msiexec /x %packages%\client-newer.msi /qn /l*v %story%\removal.log
echo %errorlevel%> %story%\removal.code
call :state removed
goto :eof

rem Saves the state of the machine; %1 is the name of the moment.
:state
sc query Ostrel > %story%\%1.service
tasklist > %story%\%1.processes
reg query "%hook%" > %story%\%1.hook
copy /y "%ProgramData%\Ostrel record.txt" %story%\%1.record >nul 2>nul
copy /y "%ProgramData%\Ostrel Audit" %story%\%1.audit >nul 2>nul
copy /y "%client%\ostrel.exe" %story%\%1.program >nul 2>nul
dir /s /b %SystemRoot%\Tasks %SystemRoot%\System32\Tasks > %story%\%1.tasks 2>nul
goto :eof
