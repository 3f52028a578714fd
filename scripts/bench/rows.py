"""What the figures of the benchmarks are called on docs/performance.md, in the order of its table, and the
plots' titles."""

# Beginning of the ratio's name -> what, beside what, unit. The first that fits counts; a name without a
# row ends the making of the page.
DIRECT = "the vendor's poll, the callback called straight from its handler"
CALLS = "a plain loop of the same vendor calls"
ROWS = [
    (r"live-(L\d)-median.*", r"one way of a live \1 message, board process to callback, median", DIRECT, " ×"),
    (r"live-(L\d)-99", r"one way of a live \1 message, 99 %", DIRECT, " ×"),
    (r"instructions-idle", "instructions of an idle `VelaRecv`, above", "an idle poll of the vendor's", ""),
    (r"instructions-(\d+)", r"instructions of a message of type \1, above", DIRECT, ""),
    (r"recv-(?:message-)?(\d+)", r"a message of \1 bytes from a ring in the cache", DIRECT, " ×"),
    (r"recv-idle", "an idle `VelaRecv`", "an idle poll of the vendor's", " ×"),
    (r"start-reset", "a start that resets the board, without its fixed waits", CALLS, " ×"),
    (r"start-no-reset", "a start that keeps the board, without its fixed waits", CALLS, " ×"),
    (r"start-reset-1us", "the first on a board whose access takes 1 µs", CALLS, " ×"),
    (r"start-no-reset-1us", "the second on such a board", CALLS, " ×"),
    (r"start-reset-1us/accesses", "the first there", "its accesses × 1 µs", " ×"),
    (r"start-no-reset-1us/accesses", "the second there", "its accesses × 1 µs", " ×"),
    (r"fetch-full", "reading both tables full", CALLS + ", and the same map of names", " ×"),
    (r"fetch-full/calls-alone", "the same", "the calls alone", " ×"),
    (r"selection-library/hash", "selection: 8,190 instruments, 16 channels with 64 rules each", "a version with hash sets", " ×"),
    (r"selection-an-(\w+)-(\d+)/(\d+)", r"time of an \1, of \2", r"of \3", " ×"),
    (r"selection-a-(\w+)-(\d+)/(\d+)", r"time of a \1, of \2", r"of \3", " ×"),
    (r"learn-rate-library/alone", "instruments learnt a second from map packets, cache file on", "`std::map`, `fwrite` and `fflush` alone", " ×"),
    (r"learn-rate-logged-library/alone", "the same with the lines of the log", "the same", " ×"),
    (r"log-line-library/spdlog", "a log line to file and standard output", "spdlog, the same two sinks, flushed for each line", " ×"),
    (r"log-line-library/spdlog-same-header", "the same", "spdlog with the library's head of a line", " ×"),
    (r"throughput-(L\d)-board/best-queue", r"messages a second, \1", "the best of three queues", " ×"),
    (r"throughput-(L\d)-board/iceoryx", r"messages a second, \1", "iceoryx", " ×"),
    (r"throughput-(L\d)-board/udp", r"messages a second, \1", "UDP on loopback", " ×"),
    (r"latency-(L\d)-board/udp-polled-99\.9", r"one way, \1, 99.9 %", "UDP on loopback, polled", " ×"),
    (r"latency-(L\d)-board/udp-polled", r"one way, \1, median", "UDP on loopback, polled", " ×"),
    (r"latency-(L\d)-udp-blocking/board", r"one way, \1, median: UDP on loopback, waited for", "the board", " ×"),
    (r"latency-(L\d)-cache-line/board", r"one way, \1, median: a bare cache line to and fro", "the board", " ×"),
    (r"latency-(L\d)-(.*)/board-99\.9", r"one way, \1, 99.9 %: \2", "the board", " ×"),
    (r"latency-(L\d)-(.*)/board", r"one way, \1, median: \2", "the board", " ×"),
    (r"relay-callback-ns", "the callback of `zce-relay publish`", "nothing", " ns"),
    (r"relay-callback/queue", "the same", "the clock and a push into an atomic_queue", " ×"),
    (r"relay-throughput-(\d)/nats", r"messages a second through a server to \1 subscribers", "NATS alone, without headers and confirmations", " ×"),
    (r"relay-latency/nats", "one way through a server, median", "NATS alone", " ×"),
    (r"recorder-message-ns", "the recorder on: a message, above", "without it", " ns"),
    (r"recorder-idle-ns", "the recorder on: an idle poll, above", "without it", " ns"),
    (r"recorder-clock-alone-ns", "of which the reading of the clock", "without it", " ns"),
]

# Plot -> title, x axis, y axis, and of "x", "y" the axes that are logarithmic.
PLOTS = {
    "relay-throughput": ("through a NATS server on loopback, 136 bytes", "subscribers", "messages a second to each", "x"),
    "fetch": ("reading both instrument tables", "instruments in them", "ms", ""),
    "start-1us": ("a start on a board whose access takes 1 µs", "0: keeps the board, 1: resets it", "ms", ""),
    "selection-instruments": ("selection, 16 channels with 64 rules each", "instruments", "µs", ""),
    "selection-channels": ("selection, 8,190 instruments, 64 rules a channel", "channels", "µs", ""),
    "selection-rules": ("selection, 8,190 instruments, 16 channels", "rules a channel", "µs", "x y"),
    "message-cost-by-size": ("a delivered message from a ring in the cache", "bytes", "ns", "x"),
    "message-cost-by-burst": ("a delivered message of 148 bytes", "messages in the burst", "ns", "x"),
    "burst-time": ("board to callback, 148 bytes", "messages in the burst", "ns a message", "x y"),
    "throughput-by-size": ("board to callback", "bytes of a message", "messages a second", "x y"),
    "channels": ("one thread polls several channels in turns", "channels", "ns", ""),
    "jitter-gaps": ("time between two polls", "ns", "gaps a second", "x y"),
    "jitter-latency": ("one-way latency", "ns", "messages", "x y"),
}
