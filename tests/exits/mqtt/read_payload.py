"""Standard input is a payload as hexadecimal digits; says in one line of JSON what is in it."""

import json
import sys

import sparkplug

PAYLOAD = sparkplug.read(bytes.fromhex(sys.stdin.read()))
SAID = {"metrics": []}
for field in ("timestamp", "seq"):
    if PAYLOAD.HasField(field):
        SAID[field] = str(getattr(PAYLOAD, field))
for metric in PAYLOAD.metrics:
    entry = {}
    for field in ("name", "alias", "timestamp", "datatype", "is_historical", "is_null"):
        if metric.HasField(field):
            entry[field] = str(getattr(metric, field))
    if sparkplug.value(metric):
        field, content = sparkplug.value(metric)
        entry["value"] = f"{field} {content}"
    if metric.HasField("properties"):
        entry["properties"] = {key: f"{kind} {field} {content}" for key, (kind, field, content)
                               in sparkplug.properties(metric).items()}
    SAID["metrics"].append(entry)
json.dump(SAID, sys.stdout)
