"""install_venv.py PYTHON PACKAGE_DIR WORK LIBRARY VERSION: pip installs the package into a new
venv in WORK, offline, checks the installed copy and runs the package's tests against it."""
import filecmp
import os
import shutil
import subprocess
import sys

python, package, work, library, version = sys.argv[1:6]
shutil.rmtree(work, ignore_errors=True)
source, venv = os.path.join(work, "src"), os.path.join(work, ".venv")
shutil.copytree(package, source, ignore=shutil.ignore_patterns("tests", "build", "*.egg-info"))
subprocess.run([python, "-m", "venv", "--system-site-packages", venv], check=True)
subprocess.run([f"{venv}/bin/pip", "install", "--no-index", "--no-build-isolation", source],
               check=True, env=dict(os.environ, TAVIKLIMITER_LIB=library))
CHECK = r"""
import importlib.metadata, os, sys, sysconfig, taviklimiter as tl
site = os.path.join(sysconfig.get_paths()["platlib"], "taviklimiter")
assert tl.library_path == os.path.join(site, "libtaviklimiter_vendor.so"), tl.library_path
assert importlib.metadata.version("taviklimiter") == sys.argv[1]
print(tl.library_path)
"""
env = {k: v for k, v in os.environ.items() if k not in ("TAVIKLIMITER_LIB", "PYTHONPATH")}
bundled = subprocess.run([f"{venv}/bin/python", "-c", CHECK, version], env=env, cwd=work,
                         check=True, capture_output=True, text=True).stdout.strip()
assert filecmp.cmp(bundled, library, shallow=False), "the package holds another library"
# The package's own tests, against the installed copy.
subprocess.run([f"{venv}/bin/python", "-m", "pytest", "-q", "-p", "no:cacheprovider",
                os.path.join(package, "tests")], env=env, cwd=work, check=True)
