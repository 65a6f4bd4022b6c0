@echo off
rem Converts the server's data: dbcon.cmd FOLDER
rem
rem The first line of FOLDER\format.txt is the format of the data. "1" becomes "2"; "2", and a folder without the
rem file, need no conversion. Leaves one marker in FOLDER: dbcon_completed.txt, or dbcon_failed.txt for other formats.
rem
rem This runs as SYSTEM, on data that others write. cmd inserts the text of a %NAME% before it parses the line, so a
rem quotation mark and "&" in the text could start a command. It inserts the text of a !NAME! after parsing. Only the
rem first two characters of the format are compared, and none is written anywhere.
set "folder=%~1"
set format=
setlocal EnableDelayedExpansion
if not exist "!folder!\format.txt" goto completed
set /p format=<"!folder!\format.txt"
set "format=!format:~0,2!"
if "!format!" == "2" goto completed
if not "!format!" == "1" goto failed
(echo 2)>"!folder!\format.txt"
if errorlevel 1 goto failed

:completed
(echo The data are in format 2.)>"!folder!\dbcon_completed.txt"
exit /b 0

:failed
(echo The data are in a format that cannot be converted.)>"!folder!\dbcon_failed.txt"
exit /b 1
