-- title: Queue of requests is not limited
-- severity: medium
-- category: reliability
-- why: Requests that an application does not keep up with fill the memory of the kernel.
-- fix: Limit the kernel request queue on the Performance tab.
-- references: DISA IIS6 Site STIG | V-13709 | https://cyber.trackr.live/stig/IIS6_Site/6/16
-- references: Microsoft, request queue limit | https://technet.microsoft.com/en-us/library/cc783466(v=ws.10).aspx
-- requires: app_pool.limits_requests
-- columns: limits_requests boolean, request_limit integer
select object_id, not limits_requests as holds, limits_requests, request_limit
from app_pool
