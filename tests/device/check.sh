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

# --- requests, as hexadecimal digits ---

# The number $1 in 4 bytes.
Word() {
    printf '%02x%02x%02x%02x' $(($1 & 255)) $(($1 >> 8 & 255)) $(($1 >> 16 & 255)) $(($1 >> 24 & 255))
}

# The text $2 in $1 bytes, the rest of which are zero; there is a rest.
Padded() {
    printf %s "$2" | hexdump -v -e '/1 "%02x"'
    printf "%0$((2 * ($1 - ${#2})))d" 0
}

# The text $1 with its terminator behind its length.
Counted() {
    Word $((${#1} + 1))
    Padded $((${#1} + 1)) "$1"
}

# The daemon answers $1 to the request $2 with the bytes $3.
Answers() {
    Same "$(tesselctl raw --reply 4 "$2" ${3:+"$3"} | head -n 1)" "$(Word "$1")"
}
