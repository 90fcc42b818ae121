Processing report of {project}
Started {start}, ended {end}
