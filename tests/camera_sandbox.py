"""What the tests of the command-line programs share: namespaces of their own, and a running simulated camera.
Arguments of such a test: source directory, build directory."""
import os
import pathlib
import signal
import subprocess
import sys
import time

SOURCE, BUILD = (pathlib.Path(path).resolve() for path in sys.argv[1:3])
CAMCTL, CAMSIM = str(BUILD / 'bin/camctl'), str(BUILD / 'bin/camsim')
CONFIG = pathlib.Path('/tmp/config')
SETTINGS = """color = color
wb_mode = onepush
saturation = 3
sharpness = 3
contrast = 3
expcomp = 9
auto_shutter = on
exposure_mode = 3
agc_max_gain = 3
binning_mode = manual
"""


def enter_sandbox():
    """A sandbox of the test's own, with /tmp as its folder."""
    if 'CAMERA_TEST_SANDBOX' not in os.environ:
        os.execv(BUILD / 'bin/test_sandbox', ['test_sandbox', sys.executable, *sys.argv])
    os.chdir('/tmp')
    CONFIG.mkdir()
    os.environ['IPCAM_CONFIG_DIR'] = str(CONFIG)


def camctl(*arguments, text_in='', under=()):
    return subprocess.run([*under, CAMCTL, *arguments], input=text_in, capture_output=True, text=True, timeout=60)


def store(text):
    """Makes the stored settings zeros but for these fields."""
    (CONFIG / 'all.conf').write_bytes(bytes(880))
    pathlib.Path('settings.txt').write_text(text)
    assert camctl('config', 'restore', 'settings.txt').returncode == 0


class Camera:
    """A running camsim. After its end `lines` is what it printed, `trace` its lines without the registers' names."""

    def __init__(self, *options):
        self.options = options

    def __enter__(self):
        with open('camsim.out', 'w') as out, open('camsim.err', 'w') as err:
            self.process = subprocess.Popen([CAMSIM, '--trace', *self.options], stdout=out, stderr=err)
        self.wait_for('serving requests')
        return self

    def __exit__(self, *_):
        self.send(signal.SIGCONT)
        self.stop()

    @staticmethod
    def printed():
        return pathlib.Path('camsim.out').read_text(), pathlib.Path('camsim.err').read_text()

    def wait_for(self, text, times=1):
        """Until camsim has printed this text so many times, on either output."""
        deadline = time.monotonic() + 20
        while sum(output.count(text) for output in self.printed()) < times:
            assert self.process.poll() is None and time.monotonic() < deadline, (text, self.printed())
            time.sleep(0.02)

    def send(self, number):
        if self.process.poll() is None:
            self.process.send_signal(number)

    def stop(self, number=signal.SIGTERM):
        self.send(number)
        self.process.wait(20)
        self.lines = self.printed()[0].splitlines()
        self.trace = [line.split('  # ')[0] for line in self.lines]
