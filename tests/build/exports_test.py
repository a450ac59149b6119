# SPDX-License-Identifier: BSD-3-Clause
"""What a host can reach in the sink by name: every run function and worker, and no data."""
import subprocess
import sys

WANTED = {
    "be_card_invoke_handler", "ueaa_prv_card_invoke", "tev_ueaa_current_device", "ueaa_prv_post_device_time",
    "ueaa_prv_query_device_time_worker", "configure_device_threading_worker", "tev_sink_report",
    "tev_sink_trust_features",
} | {f"tev_blas_{p}{op}_ao_worker" for p in "sdcz" for op in ("gemm", "symm", "trmm", "trsm")} | {
    f"tev_lapack_{name}" for p in "sdcz" for name in (
        f"{p}getrf_worker", f"{p}gemm_worker", f"{p}trsm_worker", f"{p}syrk_worker", f"{p}larfb_worker", f"{p}laswp",
        f"x{p}laswp", f"{p}larfb")}
# Start-up code and linker; tev_serv_load_fun refuses them.
TOOLCHAIN = {"_IO_stdin_used", "__data_start", "data_start", "__dso_handle", "__TMC_END__", "__bss_start", "_edata",
             "_end"}

lines = subprocess.run(["nm", "-D", "--defined-only", sys.argv[1]], check=True, capture_output=True, text=True).stdout
symbols = {}
for line in lines.splitlines():
    *_, kind, name = line.split()
    symbols[name.split("@")[0]] = kind

missing = sorted(WANTED - symbols.keys())
data = sorted(n for n, kind in symbols.items()
              if kind.upper() not in "TWI" and n not in TOOLCHAIN and ("asan" not in n and "san" not in n))
own_data = sorted(n for n in data if n.startswith(("tev_", "ueaa_", "g_", "TEV_")))
print(f"{len(symbols)} exported; missing: {missing or 'none'}; own data: {own_data or 'none'}; all data: {data or 'none'}")
sys.exit(1 if missing or own_data else 0)
