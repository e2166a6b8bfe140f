"""What findings give as SARIF is valid by the published schema: sarif.py PROGRAM SAMPLES SCHEMA"""

import copy
import glob
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

program, samples, schema_file = sys.argv[1:]
schema = json.loads(pathlib.Path(schema_file).read_text())
jsonschema.Draft4Validator.check_schema(schema)
validator = jsonschema.Draft4Validator(schema, format_checker=jsonschema.FormatChecker())


def run(folder, status, *arguments):
    done = subprocess.run([program, *arguments], cwd=folder, capture_output=True, text=True)
    assert done.returncode == status, (arguments, done)


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    (folder / "own name.xml").write_bytes(pathlib.Path(samples, "WEB01", "MetaBase.xml").read_bytes())
    run(folder, 1, "collect", "own name.xml", *glob.glob(samples + "/*/MetaBase.xml"), "-d", "all.db", "--quiet")
    run(folder, 0, "collect", f"PART={samples}/WEB01/MetaBase.xml", "--only", "Health", "-d", "all.db", "--quiet")
    header = ("-- title: T\n-- severity: critical\n-- category: reliability\n-- why: W\n-- fix: F\n"
              "-- references: Book\n-- references: Book\n-- requires: collection\n")
    for rule, holds in ("server", "true"), ("broken", "abs(-9223372036854775807 - collection_id) > 0"):
        (folder / f"{rule}.sql").write_text(
            header + f"select collection_id * 4294967296 as object_id, {holds} as holds from collection")
    (folder / "all.db.ignore").write_text("stopped: * | 2999-12-31 | spare\npool-*: * | | accepted\n")
    run(folder, 2, "findings", "-d", "all.db", "--rule", "*", "--rules", "server.sql", "--rules", "broken.sql",
        "-o", "all.sarif")
    run(folder, 0, "findings", "-d", "all.db", "--rule", "ftp-same-binding", "--server", "PART", "-o", "none.sarif")
    texts = {each: json.loads((folder / each).read_text()) for each in ("all.sarif", "none.sarif")}

results = texts["all.sarif"]["runs"][0]["results"]
kinds = {each["kind"] for each in results} | {"suppressed" for each in results if "suppressions" in each}
assert kinds == {"fail", "open", "notApplicable", "suppressed"}, kinds
assert any(each["ruleId"] == "server" for each in results)
notifications = texts["all.sarif"]["runs"][0]["invocations"][0]["toolExecutionNotifications"]
assert len(notifications) == 1, notifications
for each, text in texts.items():
    for error in validator.iter_errors(text):
        sys.exit(f"{each}: {list(error.absolute_path)}: {error.message[:500]}")
# The schema rejects invalid documents.
wrong = copy.deepcopy(texts["all.sarif"])
wrong["runs"][0]["results"][0]["level"] = "bad"
assert not validator.is_valid(wrong)
