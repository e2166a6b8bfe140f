-- title: Rapid-fail protection is off
-- severity: medium
-- category: reliability
-- why: A worker process that keeps failing is started again and again, at the cost of the others.
-- fix: Enable rapid-fail protection on the Health tab of the pool.
-- references: Microsoft, rapid-fail protection | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2003/cc779127(v=ws.10)
-- requires: app_pool.rapid_fail_protection
-- columns: rapid_fail_protection boolean
select object_id, not rapid_fail_protection as holds, rapid_fail_protection
from app_pool
