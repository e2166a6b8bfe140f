-- title: Worker processes are not recycled by time, or too rarely
-- severity: medium
-- category: reliability
-- why: Memory that an application loses is not given back before the worker process ends.
-- fix: Recycle worker processes by time on the Recycling tab, no further apart than the limit, or document the exception.
-- references: DISA IIS6 Site STIG | V-13704, WA000-WI6020 | https://app.xylok.io/reference/benchmark/iis6_site/check/dab93f4e-25ed-4ea7-a329-0fdc37e50047/?version=ced60ddc-9908-44ab-8bd2-0f2a53cc9800
-- requires: app_pool.recycles_by_time app_pool.recycle_minutes
-- columns: recycles_by_time boolean, recycle_minutes integer
-- param: minutes integer 1740
select object_id, not recycles_by_time or recycle_minutes > :minutes as holds, recycles_by_time, recycle_minutes
from app_pool
