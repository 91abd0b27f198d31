"""The network between the program and the local service: a relay that passes everything on, notes the sound, its
charges and the finished captions, and can be cut or held. The service answers to a name only with its own port, so the
relay has the same port at the other address of this machine, [::1]."""

import contextlib
import re
import socket
import threading

CLOSE_WAIT = 8  # the state of a connection whose other end has gone, as TCP_INFO gives it
BALANCE = re.compile(rb'"secondsLeft":([-+.\deE]+)[,}]')


class Line:
    """What was said on one connection. Of a web socket: the seconds of sound, the seconds that the service told were
    charged, and how many were uncharged when the client said stop, if it did. Each balance that the service told is
    added to `told`."""

    def __init__(self, told):
        self.sent = self.charged = self.captions = 0
        self.uncharged_at_stop = None
        self._balances = told
        self._granted = None
        self._rest = self._told = b""
        self._is_socket = False

    def hear_service(self, data):
        self.captions += data.count(b'"final":true')
        self._told += data
        end = max(0, len(self._told) - 64)  # a number may come in two parts
        for match in BALANCE.finditer(self._told) if self._is_socket else ():
            self._balances.append(float(match[1]))
            self._granted = self._granted or self._balances[-1]
            self.charged = self._granted - self._balances[-1]
            end = max(end, match.end())
        self._told = self._told[end:]

    def hear_client(self, data):
        self._rest += data
        if not self._is_socket:
            head, end, rest = self._rest.partition(b"\r\n\r\n")
            if not end or b"upgrade: websocket" not in head.lower():
                return
            self._is_socket, self._rest = True, rest
        while frame := self._frame():
            kind, start, size = frame
            if kind in (0, 2):
                self.sent += size / 32_000
            if kind == 1:
                self.uncharged_at_stop = self.sent - self.charged
            self._rest = self._rest[start + size:]

    def _frame(self):
        """(kind, start of the content, its size) of the next frame, if it is there whole."""
        if len(self._rest) < 14:
            more = len(self._rest) >= 2 and self._rest[1] & 127 < 126
            if not more:
                return None
        size, start = self._rest[1] & 127, 6  # after the header and the mask
        if size > 125:
            length = 2 if size == 126 else 8
            size, start = int.from_bytes(self._rest[2:2 + length], "big"), start + length
        return (self._rest[0] & 15, start, size) if len(self._rest) >= start + size else None


class Relay:
    """Listens until the process ends."""

    def __init__(self, port):
        self.url = f"http://[::1]:{port}/livetranslate"
        self.is_cut = False
        self.balances = []  # all that were told, in their order
        self._all = []
        self._port = port
        self._flows = threading.Event()
        self._flows.set()
        self._open = set()
        self._lock = threading.Lock()
        self._listener = socket.create_server(("::1", port), family=socket.AF_INET6)
        threading.Thread(target=self._accept, daemon=True).start()

    def lines(self):
        """All that carried sound."""
        with self._lock:
            return [line for line in self._all if line.sent]

    @property
    def captions(self):
        return sum(line.captions for line in self.lines())

    @contextlib.contextmanager
    def cut(self):
        """Ends all connections and lets none through until it is left."""
        self.is_cut = True
        with self._lock:
            pairs = list(self._open)
        for pair in pairs:
            self._end(pair)
        yield
        self.is_cut = False

    @contextlib.contextmanager
    def held(self):
        """Nothing comes through until it is left, and neither side is told. What a side sent and gave up is lost."""
        self._flows.clear()
        yield
        self._flows.set()

    def _accept(self):
        while True:
            client, _ = self._listener.accept()
            if self.is_cut:
                client.close()
            else:
                threading.Thread(target=self._serve, args=(client,), daemon=True).start()

    def _serve(self, client):
        self._flows.wait()
        try:
            service = socket.create_connection(("127.0.0.1", self._port))
        except OSError:
            return client.close()
        for end in (client, service):
            end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        pair, line = (client, service), Line(self.balances)
        with self._lock:
            self._open.add(pair)
            self._all.append(line)
        threading.Thread(target=self._pass, args=(pair, service, client, line.hear_service), daemon=True).start()
        self._pass(pair, client, service, line.hear_client)

    def _pass(self, pair, source, sink, hear):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                if not self._flows.is_set():
                    self._flows.wait()
                    if source.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 1)[0] == CLOSE_WAIT:
                        break
                hear(data)
                sink.sendall(data)
        self._end(pair)

    def _end(self, pair):
        with self._lock:
            self._open.discard(pair)
        for end in pair:
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)
            end.close()
