# shellcheck shell=bash disable=SC2154
# What the groups of measurements share. Sourced first by each, in a throwaway root.
# shellcheck source=tests/serving/machine.sh
. "$(dirname "${BASH_SOURCE[0]}")/../tests/serving/machine.sh" >/dev/null

# Runs two commands in turn, so that whatever else the machine does hits both: ROUNDS rounds of RUNS
# runs each. The times, in seconds, go to /tmp/times.1 and /tmp/times.2, one a line.
in_turn() { # ROUNDS RUNS HYPERFINE-ARGUMENT... COMMAND COMMAND
  rm -f /tmp/times.*
  for _ in $(seq "$1"); do
    hyperfine -N --style none --runs "$2" --export-json /tmp/round.json "${@:3}" 2>/tmp/round.log || {
      cat /tmp/round.log >&2
      return 1
    }
    awk '/"times"/ { n++; on = 1; next } /\]/ { on = 0 } on { print $1 + 0 >>("/tmp/times." n) }' \
      /tmp/round.json
  done
}

median() { # FILE
  sort -g "$1" | awk '{ v[NR] = $1 } END { print (v[int((NR + 1) / 2)] + v[int(NR / 2) + 1]) / 2 }'
}

mean() { awk '{ sum += $1 } END { print sum / NR }' "$1"; } # FILE

standard_error() { # FILE
  awk '{ sum += $1; squares += $1 * $1 }
    END { print sqrt((squares / NR - (sum / NR) ^ 2) / (NR - 1)) }' "$1"
}

calculate() { awk "BEGIN { print ($1) }"; }
ms() { awk -v s="$1" 'BEGIN { printf "%.2f ms", 1000 * s }'; }

# A row of bench/run's table. A target is "<= N" or ">= N", or "-" where there is none.
row() { # WORK MEASURED BESIDE MEASURED RATIO TARGET
  printf '%s\t%s\t%s\t%s\t%.2f\t%s\n' "$@"
}

# The row of what in_turn has measured.
time_row() { # WORK BESIDE TARGET
  local own other
  own=$(median /tmp/times.1)
  other=$(median /tmp/times.2)
  row "$1" "$(ms "$own")" "$2" "$(ms "$other")" "$(calculate "$own / $other")" "$3"
}

# Children that end at once leave what is our own.
instant_launchctl() { ln -sf /bin/true "$launchctl"; }

# So many records, all like one that "tesselctl share" has made.
records=/var/lib/directory/local/sharepoints
make_records() { # NUMBER
  local record=$records/Sample.plist
  mkdir -p /srv/Sample
  tesselctl share /srv/Sample >/dev/null
  awk -v number="$1" '
    { text = text $0 "\n" }
    END {
      parts = split(text, part, "Sample")
      for (i = 0; i < number; i++) {
        printf "%s", part[1]
        for (p = 2; p <= parts; p++) printf "Share%06d%s", i, part[p]
      }
    }' "$record" |
    split -l "$(wc -l <"$record")" -d -a 6 --additional-suffix .plist - "$records/Share"
  rm "$record"
}
