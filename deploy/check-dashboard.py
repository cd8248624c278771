#!/usr/bin/env python3
"""Checks the example dashboard: valid JSON, and every series it asks for is a metric of
ovd-exporter or a recording rule of ovd-rules.yml (so renaming one breaks this check)."""
import json
import re
import sys

dashboard_path, rules_path, exporter_path = sys.argv[1:4]
with open(dashboard_path, encoding="utf-8") as f:
    dashboard = json.load(f)
with open(rules_path, encoding="utf-8") as f:
    recorded = set(re.findall(r"^\s*- record: (\S+)", f.read(), re.M))
with open(exporter_path, encoding="utf-8") as f:
    exported = set(re.findall(r'"(ovd_[a-z_]+)"', f.read()))
exported |= {name + "_total" for name in exported}
known = recorded | exported | {"ovd_port_info"}

exprs = [t["expr"] for p in dashboard["panels"] for t in p.get("targets", [])]
exprs += [v["query"] for v in dashboard["templating"]["list"]]
bad = []
for expr in exprs:
    for name in re.findall(r"\b(ovd[_:][A-Za-z0-9_:]+)", expr):
        if name not in known:
            bad.append(name)
if bad or not exprs:
    print("unknown series in the dashboard:", sorted(set(bad)))
    sys.exit(1)
print(f"{len(exprs)} queries, every series known")
