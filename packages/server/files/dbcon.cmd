@echo off
rem Converts the server's data: dbcon.cmd FOLDER
rem
rem The first line of FOLDER\format.txt is the format of the data. "1" becomes "2"; "2", and a folder without the
rem file, needs nothing. Leaves one marker in FOLDER: dbcon_completed.txt, or dbcon_failed.txt for other formats.
set format=
if not exist "%~1\format.txt" goto completed
set /p format=<"%~1\format.txt"
if "%format%" == "2" goto completed
if not "%format%" == "1" goto failed
(echo 2)>"%~1\format.txt"
if errorlevel 1 goto failed

:completed
(echo The data are in format 2.)>"%~1\dbcon_completed.txt"
exit /b 0

:failed
(echo The data are in a format that cannot be converted: %format%)>"%~1\dbcon_failed.txt"
exit /b 1
