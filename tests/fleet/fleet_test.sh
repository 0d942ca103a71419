#!/usr/bin/env bash
# The rules, the dashboard and the documents of fleet: each query is one that Prometheus understands, each rule does what its tests
# say, and everything that is named exists.
#
# usage: fleet_test.sh SOURCE_DIRECTORY
set -euo pipefail
fleet=$1/fleet
docs=$1/docs
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
problems=0

problem() {
    echo "FAILED: $*" >&2
    problems=$((problems + 1))
}

command -v promtool >/dev/null || {
    echo "skipped: no promtool (scripts/install-deps.sh fleet)"
    exit 77
}

promtool check rules "$fleet"/rules/{recording,alerts}.yml >"$work/log" 2>&1 || problem "rules: $(cat "$work/log")"
promtool check config --syntax-only "$fleet/prometheus.yml" >"$work/log" 2>&1 || problem "prometheus.yml: $(cat "$work/log")"
promtool test rules "$fleet"/rules/test*.yml >"$work/log" 2>&1 || problem "$(cat "$work/log")"

# Every query of the dashboard, as rules that promtool can check.
python3 - "$fleet/dashboard.json" >"$work/queries.yml" <<'END' || problem "dashboard.json"
import json, sys
def queries(panels):
    for panel in panels:
        yield from (target["expr"] for target in panel.get("targets", []))
        yield from queries(panel.get("panels", []))
dashboard = json.load(open(sys.argv[1]))
ids = [panel["id"] for panel in dashboard["panels"]]
assert len(ids) == len(set(ids)), "panels with one id"
rules = [{"record": f"query:{n}", "expr": query.replace("$instance", ".*").replace("$disk", ".*")}
         for n, query in enumerate(queries(dashboard["panels"]))]
assert len(rules) > 10, "queries"
json.dump({"groups": [{"name": "dashboard", "rules": rules}]}, sys.stdout)
END
promtool check rules "$work/queries.yml" >"$work/log" 2>&1 || problem "dashboard.json: $(cat "$work/log")"

# Metrics in queries and tests are those of the document or of a recording rule; each metric of the document has a sample of its type.
documented() { sed -nE 's/^\| .(tavstrg_[a-z_]+). \| (gauge|counter) \|.*/\1/p' "$docs/METRICS.md" | sort; }
recorded() { sed -nE 's/.*- record: (.*)/\1/p' "$fleet/rules/recording.yml"; }
used() { cat "$fleet"/rules/*.yml "$work/queries.yml" | grep -oE '[a-z_]*:?tavstrg_[a-z_]+(:[a-z]+)?' | sort -u; }
while read -r name; do
    grep -qxF -- "$name" <(documented; recorded) || problem "docs/METRICS.md does not have the metric $name"
done < <(used)
[ "$(documented | wc -l)" -ge 20 ] || problem "docs/METRICS.md: cannot parse its tables"
documented | sed 's/$/ 1/' >"$work/samples"
awk '{ type = $1 ~ /_total$/ ? "counter" : "gauge"; print "# HELP " $1 " Text."; print "# TYPE " $1 " " type; print }' \
    "$work/samples" >"$work/metrics"
promtool check metrics <"$work/metrics" >"$work/log" 2>&1 || problem "names of metrics: $(cat "$work/log")"
while read -r name type; do
    [ "$type" = "$(grep -q '_total$' <<<"$name" && echo counter || echo gauge)" ] || problem "docs/METRICS.md: $name is no $type"
done < <(sed -nE 's/^\| .(tavstrg_[a-z_]+). \| (gauge|counter) \|.*/\1 \2/p' "$docs/METRICS.md")

# Each alert has a section of the runbook, to which it links, and a test in which it fires.
while read -r alert; do
    grep -qx "## $alert" "$docs/RUNBOOK.md" || problem "docs/RUNBOOK.md has no section $alert"
    grep -q "RUNBOOK.md#${alert,,}\$" "$fleet/rules/alerts.yml" || problem "$alert has no link to its section"
    grep -q "\\b$alert\\b" "$fleet"/rules/test*.yml || problem "$alert has no test"
done < <(sed -nE 's/.*- alert: (.*)/\1/p' "$fleet/rules/alerts.yml")
while read -r section; do
    grep -qx "      - alert: $section" "$fleet/rules/alerts.yml" || problem "docs/RUNBOOK.md: no alert $section"
done < <(sed -nE 's/^## (.*)/\1/p' "$docs/RUNBOOK.md")

[ "$problems" -eq 0 ]
