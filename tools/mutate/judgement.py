"""Runs the tests of a room on all of its mutants, and the tests of the rooms above it on the survivors."""

import concurrent.futures
import dataclasses

import house
from trials import Campaign, Fate
from mutant import Mutant
from programs import Programs

CAUGHT = (Fate.CAUGHT, Fate.HANGS)


@dataclasses.dataclass
class Verdict:
    mutant: Mutant
    fate: Fate
    by: str = ""  # the room whose tests caught it


class Judgement:
    def __init__(self, programs: Programs, jobs: int) -> None:
        self.programs = programs
        self.room = programs.room
        self.jobs = jobs
        self.campaigns: list[Campaign] = []

    def run(self, *, by_others: bool) -> list[Verdict]:
        own = self._campaign(self.room.name)
        verdicts = self._judge_all(own, self.room.mutants.mutants)
        if by_others:
            for name in self._rooms_above():
                self._judge_again(name, verdicts)
        for campaign in self.campaigns:
            if not campaign.holds():
                raise SystemExit(f"mutate: {campaign.program} fails without a mutant: no result can be trusted")
        return verdicts

    def _campaign(self, name: str) -> Campaign:
        campaign = Campaign(self.programs.switched(name), len(self.room.mutants.mutants), self.jobs)
        campaign.measure()
        self.campaigns.append(campaign)
        return campaign

    def _rooms_above(self) -> list[str]:
        library = f"src/liborlim_{self.room.name}.a"
        rooms = house.rooms(self.room.root)
        above = rooms[rooms.index(self.room.name) + 1 :]
        return [name for name in above if library in self.room.preset.link_command(f"{name}_test")]

    def _judge_all(self, campaign: Campaign, mutants: list[Mutant]) -> list[Verdict]:
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            fates = pool.map(lambda mutant: self._judge(campaign, mutant), mutants)
            by = self.room.name
            return [Verdict(mutant, fate, by if fate in CAUGHT else "") for mutant, fate in zip(mutants, fates)]

    def _judge(self, campaign: Campaign, mutant: Mutant) -> Fate:
        if mutant.number in self.room.refused:
            return Fate.REFUSED
        if mutant.rebuilt is None:
            return campaign.judge(mutant)
        program = self.programs.rebuilt(mutant)
        return Fate.REFUSED if program is None else campaign.judge_program(program, campaign.tests, {})

    def _judge_again(self, name: str, verdicts: list[Verdict]) -> None:
        alive = {verdict.mutant.number: verdict for verdict in verdicts if verdict.mutant.rebuilt is None}
        alive = {
            number: verdict for number, verdict in alive.items() if verdict.fate in (Fate.SURVIVED, Fate.NOT_REACHED)
        }
        if not alive:
            return
        again = self._judge_all(self._campaign(name), [verdict.mutant for verdict in alive.values()])
        for verdict in again:
            if verdict.fate != Fate.NOT_REACHED:
                alive[verdict.mutant.number].fate = verdict.fate
                alive[verdict.mutant.number].by = name
