"""Many WebDAV clients on one machine, each with a connection that it keeps: most ask for a folder
every few seconds, as mounted folders do, every tenth writes a file and reads it back. Beside them
somebody looks at Apache's other site. Prints what became of it, a name and numbers a line; times are
of those answers that came when all clients were there, the rest is of the whole run.
Usage: load_clients.py SECONDS CLIENTS HOST PORT CERTIFICATE PASSWORD
"""
import asyncio
import base64
import os
import random
import resource
import ssl
import sys
import time

seconds, clients = float(sys.argv[1]), int(sys.argv[2])
host, port, certificate, password = sys.argv[3:7]
RAMP = max(10.0, clients / 20)  # seconds in which all have come
PATIENCE = 30.0  # seconds for an answer
PAUSE = (3.0, 4.5)  # seconds between two looks at a folder; Debian's Apache keeps for 5
FILE = 20_000  # bytes

taken = {"propfind": [], "get": [], "put": []}  # seconds of each answer
other = []  # of each answer of the other site
settled = float("inf")  # when all clients are there
counts = dict.fromkeys(("answers", "lost", "connections", "refused", "closed"), 0)
faults = {}


class Closed(Exception):
    """The server has closed a connection that was kept, as it may at any time between requests."""


class Client:
    def __init__(self, number, context):
        self.context = context
        self.account = f"user{number}"
        # Sign-in takes few from one address at a time.
        self.address = f"127.1.{number // 250}.{number % 250 + 1}"
        credentials = base64.b64encode(f"{self.account}:{password}".encode()).decode()
        self.fixed = f"Host: {host}:{port}\r\nAuthorization: Basic {credentials}\r\n"
        self.reader = self.writer = None

    async def send(self, method, path, headers, body):
        is_new = self.writer is None
        if is_new:
            counts["connections"] += 1
            self.reader, self.writer = await asyncio.open_connection(
                "127.0.0.1", port, ssl=self.context, server_hostname=host,
                local_addr=(self.address, 0))
        head = f"{method} {path} HTTP/1.1\r\n{self.fixed}{headers}Content-Length: {len(body)}\r\n\r\n"
        try:
            self.writer.write(head.encode() + body)
            await self.writer.drain()
            line = await self.reader.readline()
        except OSError:
            line = b""
        if not line:
            if is_new:
                raise ConnectionError("closed without an answer")
            raise Closed
        fields = {}
        while (field := (await self.reader.readline()).strip()):
            name, _, value = field.partition(b":")
            fields[name.lower()] = value.strip().lower()
        content = b""
        if fields.get(b"transfer-encoding") == b"chunked":
            while size := int(await self.reader.readline(), 16):
                content += await self.reader.readexactly(size)
                await self.reader.readexactly(2)
            await self.reader.readline()
        elif b"content-length" in fields:
            content = await self.reader.readexactly(int(fields[b"content-length"]))
        if fields.get(b"connection") == b"close":
            self.close()
        return int(line.split()[1]), fields, content

    def close(self):
        if self.writer:
            self.writer.close()
        self.reader = self.writer = None

    async def ask(self, kind, method, path, wanted, headers="", body=b""):
        """The content of a good answer; none when it is lost."""
        began = time.monotonic()
        while True:
            try:
                status, fields, content = await asyncio.wait_for(
                    self.send(method, path, headers, body), PATIENCE)
            except Closed:
                counts["closed"] += 1
                self.close()
                continue
            except Exception as failure:  # whatever it is, an answer is missing
                self.close()
                return self.lose(f"{method}: {failure!r}")
            if status == 503 and b"retry-after" in fields:
                counts["refused"] += 1
                await asyncio.sleep(random.uniform(0.5, 1.5) * float(fields[b"retry-after"]))
                began = time.monotonic()
                continue
            if status not in wanted:
                return self.lose(f"{method}: {status}")
            if began > settled:
                taken[kind].append(time.monotonic() - began)
            counts["answers"] += 1
            return content

    def lose(self, fault):
        counts["lost"] += 1
        faults[fault] = faults.get(fault, 0) + 1

    async def live(self, end, start, writes):
        await asyncio.sleep(start)
        while time.monotonic() < end:
            if writes:
                content = os.urandom(FILE)
                path = f"/webdav/share/put/{self.account}"
                if await self.ask("put", "PUT", path, (201, 204), body=content) is not None:
                    if await self.ask("get", "GET", path, (200,)) not in (content, None):
                        self.lose("GET: another content")
                await asyncio.sleep(random.uniform(0.5, 1.5))
            else:
                await self.ask("propfind", "PROPFIND", "/webdav/share/few/", (207,), "Depth: 1\r\n")
                await asyncio.sleep(random.uniform(*PAUSE))
        self.close()


async def watch_other(end):
    while time.monotonic() < end:
        began = time.monotonic()
        try:
            reader, writer = await asyncio.wait_for(asyncio.open_connection("127.0.0.1", 80), PATIENCE)
            writer.write(b"GET /page HTTP/1.0\r\nHost: other.test\r\n\r\n")
            answer = await asyncio.wait_for(reader.read(), PATIENCE)
            writer.close()
            if not answer.endswith(b"the other site\n"):
                raise ValueError("another answer")
        except Exception as failure:
            counts["lost"] += 1
            faults[f"the other site: {failure!r}"] = 1
        other.append(time.monotonic() - began)
        await asyncio.sleep(0.05)


async def watch_both(end):
    await watch_other(settled)
    print("other_while_they_came", max(other))
    other.clear()
    await watch_other(end)


async def main():
    global settled
    # The first look at the other site is at a machine without load.
    await watch_other(time.monotonic() + 3)
    print("other_before", max(other))
    other.clear()
    context = ssl.create_default_context(cafile=certificate)
    settled = time.monotonic() + RAMP
    end = settled + seconds
    lives = [Client(i, context).live(end, random.uniform(0, RAMP), i % 10 == 0) for i in range(clients)]
    began = time.process_time()
    await asyncio.gather(watch_both(end), *lives)
    print("processor", (time.process_time() - began) / (RAMP + seconds))


def at(share, times):
    return sorted(times)[min(len(times) - 1, int(share * len(times)))] if times else float("nan")


most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
asyncio.run(main())
for kind, times in taken.items():
    print(kind, len(times), at(0.5, times), at(0.99, times), max(times, default=0))
print("other_worst", max(other))
for name, count in counts.items():
    print(name, count)
for fault, count in faults.items():
    print(f"fault {count} {fault}", file=sys.stderr)
