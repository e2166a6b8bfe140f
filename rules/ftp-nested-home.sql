-- title: A home directory contains that of another site
-- severity: low
-- category: housekeeping
-- why: The users of one site see the files of the other.
-- fix: Move one of the directories, or make the sites one.
-- requires: ftp_site.path
-- columns: path text identifying, contains text
with homes as (
  select object_id, server, path, rtrim(fold(path), '\') || '\' as folded
  from ftp_site where path is null or path <> ''),
following as (
  select server, folded, lead(folded) over (partition by server order by folded) as next
  from (select distinct server, folded from homes where path is not null) paths)
select h.object_id, case when h.path is null then null else starts_with(f.next, f.folded) end as holds,
       h.path, f.next as contains
from homes h
left join following f on f.server = h.server and f.folded = h.folded
where h.path is null or f.next is not null
