-- title: Virtual memory of worker processes is not limited
-- severity: medium
-- category: reliability
-- why: An application that loses memory can take that of the whole machine.
-- fix: Set a maximum of virtual memory on the Recycling tab.
-- references: DISA IIS6 Site STIG | V-13706 | https://cyber.trackr.live/stig/IIS6_Site/6/16
-- requires: app_pool.limits_virtual_memory
-- columns: limits_virtual_memory boolean, virtual_memory_mb integer
select object_id, not limits_virtual_memory as holds, limits_virtual_memory, virtual_memory_mb
from app_pool
