#!/usr/bin/env python3
"""queries.py MONITORING FILE: the queries of the dashboard in MONITORING, run by promtool on FILE.

For a test as well: Prometheus on what zce-watch export writes, and the dashboard's queries.
"""

import http.server
import json
import re
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path

SECONDS = 30


class Served:
    """The files of a directory over HTTP, as the node exporter serves what it has read."""

    def __init__(self, directory):
        class Handler(http.server.SimpleHTTPRequestHandler):
            extensions_map = {".prom": "text/plain; version=0.0.4; charset=utf-8"}

            def __init__(self, *arguments, **options):
                super().__init__(*arguments, directory=str(directory), **options)

            def log_message(self, *arguments):  # pylint: disable=arguments-differ
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.address = f"127.0.0.1:{self.server.server_address[1]}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.server.shutdown()
        self.server.server_close()


class Prometheus:
    """Debian's Prometheus with the rules of a directory, looking at a file once a second."""

    def __init__(self, monitoring, file, work):
        self.served = Served(Path(file).parent)
        work = Path(work)
        (work / "prometheus.yml").write_text(json.dumps({
            "global": {"scrape_interval": "1s", "evaluation_interval": "1s"},
            "rule_files": [str(Path(monitoring).resolve() / f"zce-{name}.yml") for name in ("rules", "holidays")],
            "scrape_configs": [{"job_name": "node", "metrics_path": f"/{Path(file).name}",
                                "static_configs": [{"targets": [self.served.address]}]}]}))
        self.log = work / "prometheus.log"
        with self.log.open("w") as log:
            self.process = subprocess.Popen(  # pylint: disable=consider-using-with
                ["prometheus", f"--config.file={work / 'prometheus.yml'}", f"--storage.tsdb.path={work / 'tsdb'}",
                 "--web.listen-address=127.0.0.1:0"], stdout=log, stderr=log)
        address = self.wait_for(lambda: re.search(r'msg="Listening on" address=(\S+)', self.log.read_text()),
                                "Prometheus does not listen")
        self.url = f"http://{address[1]}"

    def wait_for(self, look, what):
        """What look() gives, as soon as it is something."""
        end = time.monotonic() + SECONDS
        while time.monotonic() < end and self.process.poll() is None:
            found = look()
            if found:
                return found
            time.sleep(0.1)
        raise RuntimeError(f"{what}:\n{self.log.read_text()}")

    def get(self, path, **parameters):
        """The data of an answer of the API; an error of a query is one."""
        try:
            with urllib.request.urlopen(f"{self.url}/api/v1/{path}?{urllib.parse.urlencode(parameters)}",
                                        timeout=SECONDS) as answer:
                return json.load(answer)["data"]
        except urllib.error.HTTPError as refused:
            if refused.code == 503:  # not ready yet
                return {}
            raise RuntimeError(f"{parameters}: {json.load(refused)['error']}") from refused

    def series(self, query, **parameters):
        return self.get("query", query=query, **parameters).get("result", [])

    def wait_for_series(self, query):
        return self.wait_for(lambda: self.series(query), f"nothing for {query}")

    def wait_until_looked(self):
        """Until rates can be taken and the rules have looked at what came."""
        self.wait_for_series("count_over_time(zce_export_timestamp_seconds[1m]) >= 3")
        self.wait_for(lambda: all(rule["health"] != "unknown" for group in self.get("rules")["groups"]
                                  for rule in group["rules"]), "the rules were not tried")
        self.wait_for_series("count_over_time(zce:exchange_second_of_day[1m]) >= 3")

    def promtool(self, query):
        """The lines that promtool prints for a query, and its error."""
        run = subprocess.run(["promtool", "query", "instant", self.url, query], capture_output=True, text=True,
                             timeout=SECONDS, check=False)
        return [line for line in run.stdout.splitlines() if line], run.stderr.strip() if run.returncode else ""

    def faults_of_rules(self):
        """A line for each rule that Prometheus could not evaluate."""
        return [f"rule {rule['name']}: {rule['health']}: {rule.get('lastError', '')}"
                for group in self.get("rules")["groups"] for rule in group["rules"] if rule["health"] != "ok"]

    def close(self):
        self.process.terminate()
        self.process.wait(SECONDS)
        self.served.close()


def plain(expression):
    """A query of the dashboard with all its variables filled in."""
    expression = expression.replace("$__rate_interval", "1m")
    expression = re.sub(r'=~"\$(instance|program|bus|channel)"', '=~".*"', expression)
    return re.sub(r"^label_values\((.*), *(\w+)\)$", r"count by (\2) (\1)", expression)


def queries(monitoring):
    """(where, query, whether it may give nothing) of every query of the dashboard."""
    dashboard = json.loads((Path(monitoring) / "zce-dashboard.json").read_text())
    found = [(f"annotation {a['name']}", plain(a["expr"]), True) for a in dashboard["annotations"]["list"]]
    found += [(f"variable {v['name']}", plain(v["query"]["query"]), False)
              for v in dashboard["templating"]["list"] if v["type"] == "query"]
    for panel in dashboard["panels"]:
        found += [(f"panel {panel['title']}", plain(target["expr"]), "noValue" in panel["fieldConfig"]["defaults"])
                  for target in panel.get("targets", [])]
    return found


def run(prometheus, monitoring):
    """Runs them all by promtool, and says so. The number of faults."""
    faults = prometheus.faults_of_rules()
    for where, query, may_be_empty in queries(monitoring):
        lines, error = prometheus.promtool(query)
        if "$" in query:
            error = "a variable that is not known"
        print(f"{len(lines):3} series  {where}: {query}")
        if error or not (lines or may_be_empty):
            faults.append(f"{where}: {error or 'nothing'}: {query}")
    for fault in faults:
        print(f"FAILED: {fault}")
    return len(faults)


def main():
    monitoring, file = sys.argv[1:]
    checked = subprocess.run(["promtool", "check", "metrics"], input=Path(file).read_bytes(), capture_output=True,
                             check=False)
    if checked.returncode or checked.stderr:
        print(f"FAILED: {file}: {checked.stderr.decode()}")
        return 1
    with tempfile.TemporaryDirectory() as work:
        prometheus = Prometheus(monitoring, file, work)
        try:
            prometheus.wait_until_looked()
            faults = run(prometheus, monitoring)
        finally:
            prometheus.close()
    print(f"watch-queries: {'ok' if not faults else 'FAILED'}, {len(queries(monitoring))} queries of the dashboard")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
