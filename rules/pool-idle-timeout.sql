-- title: Idle worker processes do not end, or too late
-- severity: medium
-- category: reliability
-- why: Worker processes that nothing uses keep their memory.
-- fix: End idle worker processes on the Performance tab within the limit, or document the exception.
-- references: DISA IIS6 Site STIG | V-13708, WA000-WI6028 | https://www.stigviewer.com/stig/iis6_site/2014-12-10/finding/V-13708
-- requires: app_pool.ends_when_idle app_pool.idle_minutes
-- columns: ends_when_idle boolean, idle_minutes integer
-- param: minutes integer 20
select object_id, not ends_when_idle or idle_minutes > :minutes as holds, ends_when_idle, idle_minutes
from app_pool
