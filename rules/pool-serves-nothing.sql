-- title: A pool serves nothing
-- severity: info
-- category: housekeeping
-- why: No application is assigned to it; it can probably be removed.
-- fix: Remove the pool, or assign an application to it.
-- requires: application
select p.object_id,
       case when a.pool_id is not null then false when p.applications_incomplete then null else true end as holds
from app_pool p
left join (select distinct pool_id from application) a on a.pool_id = p.object_id
