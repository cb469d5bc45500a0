#!/bin/sh
# What a list of checks is made of; to be sourced.
# shellcheck disable=SC2317 # called by name

failures=0

# Runs the check $1. What it prints is shown when it fails, and any command in it that fails makes it fail.
Check() {
    (
        set -e
        "$1"
    ) >/tmp/output 2>&1
    status=$?
    # "if (...)" would switch "set -e" off.
    if [ $status = 0 ]; then
        echo "ok      $1"
    else
        echo "FAILED  $1"
        tail -n 40 /tmp/output | sed 's/^/        /'
        failures=$((failures + 1))
    fi
}

Same() {
    [ "$1" = "$2" ] || {
        printf 'got:\n%s\nwanted:\n%s\n' "$1" "$2"
        return 1
    }
}

# Waits up to $1 seconds until $2... succeeds.
Eventually() {
    tries=$(($1 * 10))
    shift
    until "$@" >/dev/null 2>&1; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || {
            echo "in vain: $*"
            return 1
        }
        usleep 100000
    done
}

Fails() {
    if "$@"; then
        echo "should have failed: $*"
        return 1
    fi
}
