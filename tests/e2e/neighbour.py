#!/usr/bin/env python3
"""What an unkind neighbour does to a running Tovin, for app_e2e.sh's hostile scenario.

  neighbour.py flood SOCKET COUNT SECONDS   keeps COUNT idle connections to SOCKET open for
                                            SECONDS, opening new ones as the server closes them;
                                            says "made N" once N >= COUNT were connected
  neighbour.py forge RUNTIME_DIR APP HELPER  stops the screen helper, then tries every way in:
                                            each socket in the runtime folder, and the
                                            resident's descriptors through /proc; prints what
                                            answered
  neighbour.py stranger HELPER              starts the screen helper on a socket whose other end
                                            is not its parent; prints its exit code
"""
import json
import os
import resource
import signal
import socket
import subprocess
import sys
import time


def flood(path, count, seconds):
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
    held = []
    made = 0  # connections the server's socket accepted into its queue, in all
    deadline = time.monotonic() + seconds
    reported = False
    while time.monotonic() < deadline:
        # Closed by the server: gone from the count, and opened again.
        alive = []
        for s in held:
            try:
                if s.recv(1, socket.MSG_DONTWAIT) == b"":
                    s.close()
                    continue
            except BlockingIOError:
                pass
            except OSError:
                s.close()
                continue
            alive.append(s)
        held = alive
        while len(held) < count:
            s = socket.socket(socket.AF_UNIX)
            s.setblocking(False)
            try:
                s.connect(path)
            except OSError:
                s.close()  # the backlog is full: the server is not taking them fast enough
                break
            held.append(s)
            made += 1
        if made >= count and not reported:
            print(f"made {made}", flush=True)
            reported = True
        time.sleep(0.2)


def forge(runtime, app, helper):
    lines = [
        {"ev": "hello", "pid": helper},
        {"ev": "action", "name": "lock", "value": ""},
        {"ev": "page", "role": "lockout", "message": {"type": "complete", "exercise": "Forged", "reps": 99}},
        {"ev": "coachFinished", "exercise": "Forged", "reps": 99, "clean": 99},
    ]
    payload = b"".join(json.dumps(l).encode() + b"\n" for l in lines)
    answered = []
    os.kill(helper, signal.SIGSTOP)
    try:
        for name in sorted(os.listdir(runtime)):
            s = socket.socket(socket.AF_UNIX)
            s.settimeout(2)
            try:
                s.connect(os.path.join(runtime, name))
                s.sendall(payload)
                reply = s.recv(4096)
                if reply:
                    answered.append(f"{name}: {reply!r}")
            except OSError:
                pass
            finally:
                s.close()
        # The resident's own end of the pair, reached through /proc: a socket cannot be opened
        # that way, so nothing may come of trying.
        for fd in os.listdir(f"/proc/{app}/fd"):
            try:
                with open(f"/proc/{app}/fd/{fd}", "r+b", buffering=0) as f:
                    if os.fstat(f.fileno()).st_mode & 0o170000 == 0o140000:
                        f.write(payload)
                        answered.append(f"fd {fd}: written")
            except OSError:
                pass
    finally:
        os.kill(helper, signal.SIGCONT)
    print("answered: " + ("; ".join(answered) if answered else "nothing"), flush=True)


def stranger(helper):
    # The other end belongs to a listener of its own, not to the helper's parent (this process).
    path = f"/tmp/tovin-stranger-{os.getpid()}.socket"
    listener = subprocess.Popen([sys.executable, "-c", f"""
import socket, time
s = socket.socket(socket.AF_UNIX); s.bind({path!r}); s.listen(1)
c, _ = s.accept(); time.sleep(30)
"""])
    for _ in range(100):
        if os.path.exists(path):
            break
        time.sleep(0.05)
    s = socket.socket(socket.AF_UNIX)
    s.connect(path)
    fd = s.fileno()
    os.set_inheritable(fd, True)
    run = subprocess.run([helper, "--fd", str(fd)], pass_fds=[fd], capture_output=True, text=True,
                         env=dict(os.environ, QT_QPA_PLATFORM="offscreen"), timeout=30)
    listener.kill()
    os.unlink(path)
    print(f"exit {run.returncode}: {run.stderr.strip()}", flush=True)


if __name__ == "__main__":
    what = sys.argv[1]
    if what == "flood":
        flood(sys.argv[2], int(sys.argv[3]), float(sys.argv[4]))
    elif what == "forge":
        forge(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]))
    elif what == "stranger":
        stranger(sys.argv[2])
