@echo off
rem What tools/run-server.sh does inside Windows; see there. Z:\run\server has the data and takes the outputs.
set story=Z:\run\server
set packages=Z:\run\packages\arm64
set maker=%ProgramFiles%\Halvorstead

echo installing an older server, whose data are on another drive
msiexec /i %packages%\server-older.msi /qn /l*v %story%\older.log
echo %errorlevel%> %story%\older.code
reg add HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings /v vtdf /d %story%\store\Data /f >nul
dir /s /b /a-d "%maker%" > %story%\programs-before.txt
reg query HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings > %story%\setting-before.txt

echo upgrading it
msiexec /i %packages%\server.msi /qn PROP_SILENCE=-1 /l*v %story%\upgrade.log
echo %errorlevel%> %story%\upgrade.code
dir /s /b /a-d "%maker%" > %story%\programs-after.txt
reg query HKLM\SYSTEM\CurrentControlSet\Services\Vantor\Settings > %story%\setting-after.txt
