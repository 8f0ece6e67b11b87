#!/usr/bin/env bash
# Lets curl and lftp move files through kqftpd and checks what came back.
# usage: tests/live/ftp_smoke.sh BUILD_DIR [--largest MIB] [--emulator PROGRAM]
exec python3 "$(dirname "$0")/ftp_smoke.py" "$@"
