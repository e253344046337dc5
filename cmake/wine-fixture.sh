#!/bin/sh
# wine-fixture.sh start|stop: the wine prefix and server shared by the Windows tests.
# Needs WINE, WINESERVER and WINEPREFIX (absolute) in the environment (see wine-tests.cmake).
set -u
case "${1:-}" in
  start)
    mkdir -p "$WINEPREFIX" || exit 1
    # A persistent server, detached from ctest's streams.
    "$WINESERVER" -p </dev/null >/dev/null 2>&1
    # Creates the prefix on the first run, later only starts the services; the services stay
    # with the server, so the tests do not start their own.
    if [ -f "$WINEPREFIX/system.reg" ]; then
      "$WINE" wineboot </dev/null >/dev/null 2>&1
    else
      echo "creating wine prefix $WINEPREFIX"
      "$WINE" wineboot -i </dev/null >/dev/null 2>&1
    fi
    rc=$?
    # (The registry files appear only when the server saves them, at the latest at "stop".)
    if [ $rc -ne 0 ]; then
      echo "wineboot failed (exit $rc) for $WINEPREFIX" >&2
      "$WINESERVER" -k </dev/null >/dev/null 2>&1
      exit 1
    fi
    ;;
  stop)
    "$WINESERVER" -k </dev/null >/dev/null 2>&1 || true
    ;;
  *)
    echo "usage: $0 start|stop" >&2
    exit 2
    ;;
esac
exit 0
