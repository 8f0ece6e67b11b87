#!/usr/bin/env bash
# Unpacks the zip for Windows and runs its programs from there, under the private Wine, which has nothing else of ours.
# usage: tests/packages/windows.sh ZIP
set -euo pipefail
cd "$(dirname "$0")/../.."
zip=$1
folder=build/windows32-package/unpacked
export KQNET_WINE_PREFIX=$PWD/build/windows32-package/wine-prefix

fail() {
    printf 'packages: %s\n' "$*" >&2
    exit 1
}

rm -rf "$folder"
unzip -q "$zip" -d "$folder"
cd "$folder"/kqnet-*
for file in bin/kqnet.dll bin/kqcommon.dll bin/libstdc++-6.dll lib/libkqnet.dll.a lib/libkqcommon.dll.a \
    lib/cmake/kqnet/kqnetConfig.cmake include/kqnet/net/service/NetTCPService.h copyright.txt LICENSE NOTICE; do
    [ -s "$file" ] || fail "$file is missing"
done

scripts=../../../../scripts
"$scripts"/wine-run --boot
trap '"$scripts"/wine-run --shutdown' EXIT
for program in kq kqftp kqftpd; do
    answer=$("$scripts"/wine-run "bin/$program.exe" --version | tr -d '\r') || fail "$program does not run"
    [[ $answer == "$program "[0-9]* ]] || fail "$program says: $answer"
done
"$scripts"/wine-run bin/kq.exe cert create --name made --common-name localhost --unit Files --organization Example \
    --email ftp@example.org --city Berlin --state Berlin --country DE --out . >/dev/null || fail "kq makes no certificate"
[ -s made.crt ] || fail "no certificate was made"
echo "packages: the programs run from where the zip was unpacked"
