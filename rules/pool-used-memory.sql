-- title: Used memory of worker processes is not limited
-- severity: medium
-- category: reliability
-- why: An application that loses memory can take that of the whole machine.
-- fix: Set a maximum of used memory on the Recycling tab.
-- references: DISA IIS6 Site STIG | V-13707 | https://cyber.trackr.live/stig/IIS6_Site/6/16
-- requires: app_pool.limits_used_memory
-- columns: limits_used_memory boolean, used_memory_mb integer
select object_id, not limits_used_memory as holds, limits_used_memory, used_memory_mb
from app_pool
