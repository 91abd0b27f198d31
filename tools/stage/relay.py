"""The network between the program and the local service: a relay that passes everything on, counts the sound and the
finished captions, and can be cut or held. The service answers to a name only with its own port, so the relay
has the same port at the other address of this machine, [::1]."""

import contextlib
import socket
import threading

CLOSE_WAIT = 8  # the state of a connection whose other end has gone, as TCP_INFO gives it


class Sound:
    """What a client of the service sends on one connection; of a web socket, the seconds of sound."""

    def __init__(self):
        self.seconds = 0
        self._rest = b""
        self._is_socket = False

    def take(self, data):
        self._rest += data
        if not self._is_socket:
            head, end, rest = self._rest.partition(b"\r\n\r\n")
            if not end or b"upgrade: websocket" not in head.lower():
                return
            self._is_socket, self._rest = True, rest
        while frame := self._frame():
            kind, start, size = frame
            if kind in (0, 2):
                self.seconds += size / 32_000
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
        self.captions = 0
        self.sent = []  # a `Sound` for each connection
        self.is_cut = False
        self._port = port
        self._flows = threading.Event()
        self._flows.set()
        self._open = set()
        self._lock = threading.Lock()
        self._listener = socket.create_server(("::1", port), family=socket.AF_INET6)
        threading.Thread(target=self._accept, daemon=True).start()

    def seconds(self):
        """Of sound that was passed on, and on how many connections."""
        with self._lock:
            counted = [sound.seconds for sound in self.sent if sound.seconds]
        return sum(counted), len(counted)

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
        pair, sound = (client, service), Sound()
        with self._lock:
            self._open.add(pair)
            self.sent.append(sound)
        threading.Thread(target=self._pass, args=(pair, service, client, self._count), daemon=True).start()
        self._pass(pair, client, service, sound.take)

    def _count(self, data):
        self.captions += data.count(b'"final":true')

    def _pass(self, pair, source, sink, count):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                if not self._flows.is_set():
                    self._flows.wait()
                    if source.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 1)[0] == CLOSE_WAIT:
                        break
                count(data)
                sink.sendall(data)
        self._end(pair)

    def _end(self, pair):
        with self._lock:
            self._open.discard(pair)
        for end in pair:
            with contextlib.suppress(OSError):
                end.shutdown(socket.SHUT_RDWR)
            end.close()
