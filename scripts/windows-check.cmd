@echo off
rem windows-check [kestrel.exe]: tries kestrel on Windows itself, prints a line for each item, and
rem fails if any is not as it should be. What needs PowerShell or more rights is skipped.
setlocal
set "kestrel=%~dp0kestrel.exe"& if not "%~1"=="" set "kestrel=%~f1"
set "top=%TEMP%\kestrel-check-%RANDOM%%RANDOM%"
for %%d in (tree\sub tree\twins temp) do mkdir "%top%\%%d"
cd /d "%top%"
set "TEMP=%top%\temp"& set failed=0
for %%i in (1 2 3 4 5 6) do echo %%i>tree\f%%i.h
call :run 0 "a manifest is written" -g
call :run 0 "an unchanged tree passes" -c
echo 7 >tree\f6.h
call :run 1 "a changed file fails" -c
call :has "different"
call :run 0 "a manifest is replaced" -g
echo x>tree\sub\more.h
call :run 1 "a file that is not listed fails" -c --extra
call :has "extra"
set "ps=powershell -NoProfile -Command"
%ps% "exit 7" >nul 2>nul
if not "%errorlevel%"=="7" goto end
%ps% "[IO.File]::WriteAllText('tree\sub\' + [char]0xE4 + [char]0x20AC + '.h', 'x')"
call :run 0 "names in other scripts are listed" -g
%ps% "$t = [IO.File]::ReadAllText('manifest'); exit [int]!$t.Contains([string][char]0xE4 + [char]0x20AC)"
call :say 0 "they are UTF-8 in the manifest"
%ps% "$f = [IO.File]::Open('tree\f1.h', 'Open', 'Read', 'None'); & $env:kestrel -c --report=report --manifest=manifest --instdir=tree; exit $LASTEXITCODE" >nul
call :say 1 "a file that somebody else keeps to himself fails"
call :has "unreadable"
icacls manifest /grant *S-1-5-32-546:R >nul
call :run 0 "a manifest with an access list of its own is replaced" -g
%ps% "exit [int]!(icacls manifest | Select-String '\(R\)$')"
call :say 0 "it keeps the list"
fsutil file setCaseSensitiveInfo tree\twins enable >nul 2>nul && call :twins
%ps% "$f = [IO.File]::Create('tree\large'); $f.SetLength(8GB); $f.Close()"
set "run=$p = Start-Process $env:kestrel '-g --tasks=2 --manifest=manifest --instdir=tree' -PassThru -WindowStyle Minimized; Start-Sleep 2; if ($p.HasExited) {exit 9}"
%ps% "%run%; $null = $p.CloseMainWindow(); $p.WaitForExit(); exit [int][bool](Get-ChildItem temp)"
call :say 0 "a run that is interrupted leaves nothing"
%ps% "%run%; $p.Kill(); Start-Sleep 2; exit [int][bool](Get-Process kestrel*)"
call :say 0 "tasks end with their parent, which can remove nothing when it is killed"
:end
cd /d "%~dp0"& rmdir /s /q "%top%"
exit /b %failed%
:twins
echo x>tree\twins\a.h
call :run 0 "a directory may tell upper from lower case" -g
echo y>tree\twins\A.H
call :run 1 "names that differ in case only are two files" -c --extra
exit /b
:run
"%kestrel%" %3 %4 --tasks=2 --report=report --manifest=manifest --instdir=tree >nul
call :say %1 %2
for /f %%f in ('dir /b temp 2^>nul') do (set failed=1& echo FAILED: %%f is left in TEMP)
exit /b
:has
find "%~1" report >nul
call :say 0 "and the report says so"
exit /b
:say
if "%errorlevel%"=="%~1" (echo ok: %~2) else (set failed=1& echo FAILED with %errorlevel%: %~2)
