"""Which tests hold which file: for each pattern the test programs, in the order in which they are
asked, with the part of their cases that is about the file (a --gtest_filter; "*": all)."""

from fnmatch import fnmatch

LOG = [("elogTest", "*"), ("elogRotatingTest", "*"), ("elogZoneTest", "*"),
       ("elogAllocationTest", "*"), ("elogRaceTest", "*")]
WORKER = [("worker_test", "*"), ("own_drivers_test", "*"), ("api_test", "*"),
          ("startSequenceTest", "*"), ("lateStartTest", "*"), ("dayChangeTest", "*"),
          ("minuteSweepTest", "*")]
DATA = [("dataType_test", "*"), ("worker_test", "*"), ("configDoc_test", "*"),
        ("startSequenceTest", "*"), ("selectionModelTest", "*")]

TABLE = [
    ("src/log/elogPrint.cpp", [("elogPrintTest", "*"), *LOG, ("log_signal_system", "*")]),
    ("src/log/*", LOG),
    ("src/SignalProcess.*", [("signalProcessTest", "*"), ("elogTest", "ElogSignal.*"),
                             ("worker_test", "*"), ("api_test", "*")]),
    ("src/Utils/envCheck.cpp", [("envCheckTest", "*")]),
    ("src/Utils/clockSeam.*", [("clockSeamTest", "*"), ("elogZoneTest", "*")]),
    ("src/Utils/threadMutex.h", [("utilsTest", "ThreadMutex*"), ("elogTest", "*")]),
    ("src/Utils/calendar.*", [("utilsTest", "*"), ("elogTest", "*"), ("worker_test", "*")]),
    ("src/Utils/*", [("utilsTest", "*"), ("envCheckTest", "*"), ("worker_test", "*"),
                     ("api_test", "*")]),
    ("src/DrvEnyx/*", [("drvEnyxTests", "*"), ("api_test", "*"), ("startSequenceTest", "*")]),
    ("src/DataType/ZceIniGuard*", [("iniGuard_test", "*"), *DATA]),
    ("src/DataType/ZceStartRules.*", [("dataType_test", "*"), ("minuteSweepTest", "*"),
                                      ("worker_test", "*"), ("startSequenceTest", "*")]),
    ("src/DataType/*", DATA),
    ("src/VelaZceBinRead.*", [("worker_test", "BinFile*"),
                              ("worker_test", "*"), ("minuteSweepTest", "*")]),
    ("src/VelaZceBin*", [("worker_test", "BinFile*"), ("dataType_test", "*"),
                         ("worker_test", "*")]),
    ("src/VelaZceUpdma*", WORKER),
    ("src/VelaZce*", [("api_test", "*"), ("own_drivers_test", "*"), ("api_threads_test", "*"),
                      ("secondStartTest", "*"), ("worker_test", "*")]),
    ("board/memory/Ring.*", [("memory_tests", "Ring*"), ("device_tests", "*"),
                             ("vendor_tests", "*")]),
    ("board/memory/*", [("memory_tests", "*"), ("vendor_tests", "*"), ("device_tests", "*")]),
]


def tests_of(path: str) -> list[tuple[str, str]]:
    for pattern, tests in TABLE:
        if fnmatch(path, pattern):
            return tests
    raise SystemExit(f"mutate: {path} has no tests in scripts/mutate/table.py")
