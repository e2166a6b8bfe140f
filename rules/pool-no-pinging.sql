-- title: Worker processes are not pinged
-- severity: medium
-- category: reliability
-- why: A worker process that hangs is not noticed and not replaced.
-- fix: Enable pinging on the Health tab of the pool.
-- references: DISA IIS6 Site STIG | V-13710 | https://cyber.trackr.live/stig/IIS6_Site/6/16
-- references: Microsoft, PingingEnabled | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc780042(v=ws.10)
-- requires: app_pool.pinging
-- columns: pinging boolean, ping_seconds integer
select object_id, not pinging as holds, pinging, ping_seconds
from app_pool
