@echo off
rem The part of tools/demonstration/run-server.sh that runs inside Windows; see there. Data and outputs: Z:\run\server.
set story=Z:\run\server
set packages=Z:\run\packages\arm64
set maker=%ProgramFiles%\Halvorstead
set hxrun=Z:\run\arm64\hxrun.exe

echo installing an older server, whose data are on another drive
msiexec /i %packages%\server-older.msi /qn /l*v %story%\older.log
echo %errorlevel%> %story%\older.code
reg add HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings /v vtdf /d %story%\store\Data /f >nul
dir /s /b /a-d "%maker%" > %story%\programs-before.txt
reg query HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings > %story%\setting-before.txt

echo asking what the upgrade would do
call :ask CustomAction34 DIR_UPG=Data
call :ask CustomAction20 DIR_SERVER="%maker%\Vantor\" DIR_UPG="Vantor (previous)" DIR_UPG_DATA=Data
call :ask --dry-run CustomAction15 --data "hxsetup -mobl \"%maker%\Vantor\.\" \"%maker%\Vantor (previous)\.\""
call :ask --dry-run CustomAction23 PROP_ACCOUNTTYPE=1 PROP_ACCOUNTID=vantor
call :ask --trace CustomAction12
dir /s /b /a-d "%maker%" > %story%\programs-asked.txt
reg query HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings > %story%\setting-asked.txt

echo upgrading it
msiexec /i %packages%\server.msi /qn PROP_SILENCE=-1 /l*v %story%\upgrade.log
echo %errorlevel%> %story%\upgrade.code
dir /s /b /a-d "%maker%" > %story%\programs-after.txt
reg query HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings > %story%\setting-after.txt

echo removing it, and installing it again with its own account
msiexec /x %packages%\server.msi /qn /l*v %story%\away.log
echo %errorlevel%> %story%\away.code
msiexec /i %packages%\server-watched.msi /qn PROP_SILENCE=-1 PROP_ACCOUNTTYPE=1 DIR_DATAFOLDER=%story%\private\Data /l*v %story%\account.log
echo %errorlevel%> %story%\account.code
reg query HKLM\SYSTEM\CurrentControlSet\Services\Vantor /v ObjectName > %story%\account.txt
reg query HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Vantor /v EventMessageFile >> %story%\account.txt
sc query Vantor >> %story%\account.txt

echo removing that
msiexec /x %packages%\server-watched.msi /qn PROP_SILENCE=-1 WITNESSACCOUNT=vantor /l*v %story%\removal.log
echo %errorlevel%> %story%\removal.code

echo making an installation fail
msiexec /i %packages%\server-watched.msi /qn PROP_SILENCE=-1 PROP_ACCOUNTTYPE=1 WITNESSFAILURE=1 /l*v %story%\rollback.log
echo %errorlevel%> %story%\rollback.code
reg query HKLM\SYSTEM\CurrentControlSet\Services\Vantor > %story%\rollback.txt 2>&1

exit /b 0

:ask
>>%story%\asked.txt echo ^> hxrun %*
>>%story%\asked.txt 2>&1 %hxrun% %*
>>%story%\asked.txt echo exit status %errorlevel%
goto :eof
